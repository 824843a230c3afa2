#include "kel/fault.h"

#include <csignal>

namespace kel {

void RaiseArithmeticFault() { std::raise(SIGFPE); }

}  // namespace kel
