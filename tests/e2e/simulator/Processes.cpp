#include "tests/e2e/simulator/Processes.h"

#include <poll.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <system_error>

namespace orvane {

namespace {

constexpr int kTries = 1000;
constexpr int kMillisecondsBetween = 5;

/// @return as much as can be read; nothing of a process that has ended
std::string Slurp(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

/// @param folder  below /proc
/// @return nothing when there is no such process
std::optional<Process> Read(const std::string& folder) {
  const std::string text = Slurp("/proc/" + folder + "/stat");
  const std::size_t begin = text.find('(');
  const std::size_t end = text.rfind(')');
  if (begin == std::string::npos || end == std::string::npos) {
    return std::nullopt;
  }
  Process process{.name = text.substr(begin + 1, end - begin - 1)};
  std::istringstream(text) >> process.id;
  pid_t group = 0;
  std::istringstream(text.substr(end + 1)) >> process.state >> process.parent >> group >>
      process.session;
  return process;
}

}  // namespace

std::vector<Process> AllProcesses() {
  std::vector<Process> processes;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos) {
      if (const std::optional<Process> process = Read(name)) {
        processes.push_back(*process);
      }
    }
  }
  return processes;
}

namespace {

/// The processes whose environment has a variable, in one look at the list.
std::vector<Process> FindWith(const std::string& variable) {
  const std::string wanted = '\0' + variable + '\0';
  std::vector<Process> processes = AllProcesses();
  std::erase_if(processes, [&](const Process& process) {
    // Of a process that has ended, the environment is empty.
    const std::string environment =
        '\0' + Slurp("/proc/" + std::to_string(process.id) + "/environ");
    return environment.find(wanted) == std::string::npos;
  });
  return processes;
}

}  // namespace

std::vector<Process> ProcessesWith(const std::string& variable) {
  const std::vector<Process> before = FindWith(variable);
  // One look misses a process whose parent creates it and ends meanwhile, and then both of them.
  std::vector<Process> processes = FindWith(variable);
  for (const Process& process : before) {
    if (std::none_of(processes.begin(), processes.end(), [&](const Process& other) {
          return other.id == process.id;
        })) {
      processes.push_back(process);
    }
  }
  return processes;
}

char StateOf(pid_t process) {
  const std::optional<Process> found = Read(std::to_string(process));
  return found ? found->state : '\0';
}

std::string Describe(const std::vector<Process>& processes) {
  std::string text;
  for (const Process& process : processes) {
    text += (text.empty() ? "" : ", ") + process.name + " " + std::to_string(process.id) + " " +
            process.state;
  }
  return text;
}

bool Eventually(const std::function<bool()>& question) {
  for (int i = 0; i < kTries; ++i) {
    if (question()) {
      return true;
    }
    ::poll(nullptr, 0, kMillisecondsBetween);
  }
  return false;
}

}  // namespace orvane
