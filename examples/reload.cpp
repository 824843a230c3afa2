#include <tamber.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <string>

namespace {

/// Serves with the last version of a script that compiled.
class Service {
 public:
  explicit Service(std::string path) : path_(std::move(path)) {}

  /// Compiles the file as it is now, beside the version that serves; that goes on when the new one
  /// does not compile. For the thread that calls Greet, between two calls.
  bool Reload() {
    auto fresh = std::make_unique<TamberContext>();
    fresh->SetDefaultReports(false);
    RegisterFunction(*fresh, "int Served ()", [this] { return served_; });
    if (fresh->CompileScriptFile(KelString(path_)) == 0) {
      const TamberDiagnostic& error = fresh->GetDiagnostic();
      std::cout << "not taken over: line " << error.line << ": " << error.text.Str() << '\n';
      return false;
    }
    context_ = std::move(fresh);
    return true;
  }

  void Greet(const char* name) {
    ++served_;
    std::cout << Call<std::string>(*context_, "Greeting", name).ValueOr("no greeting") << '\n';
  }

 private:
  std::string path_;
  int32_t served_ = 0;  // what is to outlive a version belongs to the host
  std::unique_ptr<TamberContext> context_;
};

void Write(const char* path, const char* expression) {
  std::ofstream(path) << "string Greeting(string name)\n"
                      << "  return " << expression << "\n"
                      << "endproc\n";
}

}  // namespace

int main() {
  constexpr const char* kPath = "greeting.tam";
  Write(kPath, "\"hello, \" + name");
  Service service(kPath);
  if (!service.Reload()) return 1;
  service.Greet("Ann");
  for (const char* expression :
       {"\"welcome, \" + nam", "\"welcome, \" + name + \", no. \" + Served()"}) {
    Write(kPath, expression);
    service.Reload();
    service.Greet("Bob");
  }
  return 0;
}
