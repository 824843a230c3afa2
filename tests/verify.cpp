// Linked with the test programs: every context that they make verifies its code.
#include "machine/verifier.h"

namespace {

const bool verifies = [] {
  tamber::SetVerifiesByDefault(true);
  return true;
}();

}  // namespace
