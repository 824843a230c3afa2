#include <iostream>
#include <string>

#include "tamber.h"

namespace {

double Area(int32_t width, double height) { return width * height; }

std::string Describe(std::string_view name, double area) {
  if (name.empty()) throw tamber::ScriptError(ERR_INVALIDPARAM, "a name is needed");
  return std::string(name) + " has " + std::to_string(static_cast<int>(area)) + " square metres";
}

constexpr const char* kScript =
    "string Room(string name, int width, double height)\n"
    "  return Describe(name, Area(width, height))\n"
    "endproc\n";

}  // namespace

int main() {
  TamberContext context;
  RegisterFunction(context, "double Area (int Width, double Height)", Area);
  RegisterFunction(context, "string Describe (string Name, double Area)", Describe);
  if (!context.CompileScriptBuffer("rooms", kScript, 1)) return 1;
  for (const char* name : {"the hall", ""}) {
    if (const auto text = Call<std::string>(context, "Room", name, 6, 4.5)) {
      std::cout << text.Value() << '\n';
    } else {
      const TamberDiagnostic& error = text.Error();
      std::cout << error.file.Str() << ':' << error.line << ": " << error.name.Str() << ": "
                << error.detail.Str() << '\n';
    }
  }
  return 0;
}
