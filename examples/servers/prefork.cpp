// The parent compiles, its children serve: they share the memory of the program.
//
//     prefork CHILDREN SCRIPT
//
// Prints the port on 127.0.0.1 and the children's process numbers. Whoever connects sends a line
// and gets what the script's "string Serve(string line)" makes of it.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <tamber.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <set>
#include <string>

namespace {

using Program = std::shared_ptr<const TamberProgram>;

/// The context in which the script was compiled is gone when this returns; the program stays.
Program Prepare(const char* script) {
  TamberContext context;
  context.SetDefaultReports(false);
  if (context.CompileScriptFile(KelString(script)) != 0) return context.Freeze();
  const TamberDiagnostic& error = context.GetDiagnostic();
  std::cerr << error.file.Str() << ':' << error.line << ": " << error.text.Str() << '\n';
  return nullptr;
}

/// A socket on any free port of 127.0.0.1; below 0 when there is none.
int Listen() {
  const int listening = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (listening < 0 || bind(listening, any, size) != 0 || listen(listening, SOMAXCONN) != 0 ||
      getsockname(listening, any, &size) != 0)
    return -1;
  std::cout << ntohs(address.sin_port) << std::endl;
  return listening;
}

std::string ReadLine(int client) {
  std::string line;
  char c = 0;
  while (line.size() < 4096 && read(client, &c, 1) == 1 && c != '\n') line += c;
  return line;
}

void Answer(const Program& program, int client) {
  TamberContext context(program);
  const auto answer = Call<std::string>(context, "Serve", ReadLine(client));
  std::string text;
  if (answer) {
    text = answer.Value();
  } else {
    text = "error " + std::to_string(answer.Error().code) + " in line " +
           std::to_string(answer.Error().line);
  }
  text += '\n';
  size_t sent = 0;
  while (sent < text.size()) {
    const ssize_t now = send(client, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (now <= 0) return;
    sent += static_cast<size_t>(now);
  }
}

/// All children wait at one socket; the system wakes one of them for each client.
[[noreturn]] void Serve(const Program& program, int listening) {
  for (;;) {
    const int client = accept(listening, nullptr, nullptr);
    if (client < 0) continue;
    // Who connects and says nothing does not keep it.
    const timeval patience{5, 0};
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    Answer(program, client);
    close(client);
  }
}

}  // namespace

int main(int count, char** words) {
  if (count != 3) {
    std::cerr << "usage: prefork CHILDREN SCRIPT\n";
    return 2;
  }
  sigset_t signals, none;
  sigemptyset(&none);
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGCHLD}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const Program program = Prepare(words[2]);
  const int listening = program != nullptr ? Listen() : -1;
  if (listening < 0) return 1;
  std::set<pid_t> children;
  const auto wanted = static_cast<size_t>(std::atoi(words[1]));
  int signal = SIGCHLD;
  while (signal == SIGCHLD) {
    // One that has died is replaced; the program is there.
    for (pid_t gone; (gone = waitpid(-1, nullptr, WNOHANG)) > 0;) children.erase(gone);
    while (children.size() < wanted) {
      const pid_t child = fork();
      if (child == 0) {
        sigprocmask(SIG_SETMASK, &none, nullptr);
        Serve(program, listening);
      }
      if (child < 0) break;
      children.insert(child);
      std::cout << child << std::endl;
    }
    sigwait(&signals, &signal);
  }
  for (const pid_t child : children) kill(child, SIGTERM);
  while (wait(nullptr) > 0) continue;
  return 0;
}
