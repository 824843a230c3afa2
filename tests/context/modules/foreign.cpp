// A module that was built when the records looked different.
#include <cstdint>

#define EXPORTED __attribute__((visibility("default")))
extern "C" {
EXPORTED uint64_t TamberModuleStamp() { return 1; }
EXPORTED const void* InitialiseForeignModule() { return "nothing that anybody should look at"; }
}
