#include "tests/e2e/companion/Gate.h"

namespace companion_test {

void PutGate(Bench& bench, const std::string& atGate) {
  bench.BeforeTarnwick(
      "if mkdir \"$folder/passed\" 2>/dev/null; then\n"
      "  echo >\"$folder/arrived\"; read -r go <>\"$folder/open\"\n" +
      atGate + "\nfi");
}

// The instrument holds signals back while a program opens a file, so nothing waits there: "<>" is
// open at once, and the wait is in the reading.
std::string WaitForEver() {
  return "mkfifo \"$folder/never\" 2>/dev/null; read -r line <>\"$folder/never\"";
}

std::string MakeGate() { return "mkfifo ../arrived ../open"; }

// The time limits are for tests that fail.
std::string AwaitArrival() { return "timeout 60 cat ../arrived >/dev/null"; }
std::string OpenGate() { return "timeout 60 sh -c 'echo >../open'"; }

std::string InBackground(const std::string& name, const std::string& command) {
  return command + " >" + name + ".out 2>" + name + ".err & " + name + "=$!";
}

std::string ExitCodeOf(const std::string& name) { return "wait $" + name + "; echo $?"; }

}  // namespace companion_test
