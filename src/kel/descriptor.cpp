#include "kel/descriptor.h"

#include <unistd.h>

namespace kel {

bool Descriptor::Close() { return value_ < 0 || ::close(std::exchange(value_, -1)) == 0; }

}  // namespace kel
