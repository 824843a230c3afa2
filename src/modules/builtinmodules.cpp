#include "context/builtinmodules.h"

#include "modules/ee_dir.h"
#include "modules/ee_file.h"
#include "modules/ee_str.h"
#include "modules/ee_var.h"
#include "modules/tambutil.h"

namespace tamber {

std::vector<const FUNCMOD_REGISTRATION*> BuiltInModules() {
  return {GetCoreModule(), GetStringModule(), GetSystemModule(), GetDirectoryModule(),
          GetFileModule()};
}

}  // namespace tamber
