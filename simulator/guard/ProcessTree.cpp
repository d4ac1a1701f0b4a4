#include "simulator/guard/ProcessTree.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

namespace orvane::process_tree {

namespace {

namespace fs = std::filesystem;

constexpr int kRounds = 5000;
constexpr useconds_t kPauseMicroseconds = 1000;  // between two rounds: time to end

struct Process {
  pid_t parent = 0;
  bool hasEnded = false;
};

/// @return what could be read: a process can end between open and read, which then fails
std::string Slurp(const fs::path& path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();  // throws nothing, unlike an iterator over the buffer
  return text.str();
}

/// The process that an entry of /proc stands for.
/// @return 0 for any other entry
pid_t IdOf(const fs::path& entry) {
  const std::string name = entry.filename().string();
  pid_t id = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
  return error == std::errc() && end == name.data() + name.size() ? id : 0;
}

std::vector<pid_t> All() {
  std::vector<pid_t> all;
  std::error_code ignored;  // the list ends where it cannot be read
  for (fs::directory_iterator entry("/proc", ignored), end; !ignored && entry != end;
       entry.increment(ignored)) {
    if (const pid_t id = IdOf(entry->path()); id > 0) {
      all.push_back(id);
    }
  }
  return all;
}

/// @return the default for a process that does not exist any more
Process Look(pid_t id) {
  // "123 (name) S 45 ...": the name may contain anything, also ") ".
  const std::string stat = Slurp("/proc/" + std::to_string(id) + "/stat");
  const std::size_t nameEnd = stat.rfind(") ");
  if (nameEnd == std::string::npos || nameEnd + 4 >= stat.size()) {
    return {.hasEnded = true};
  }
  Process process;
  const char state = stat[nameEnd + 2];
  process.hasEnded = state == 'Z' || state == 'X';
  const char* const parent = stat.data() + nameEnd + 4;
  std::from_chars(parent, stat.data() + stat.size(), process.parent);
  return process;
}

/// Kills what `find` returns until that is nothing, twice: a process can be missed when its parent
/// ends while the list is read.
template <typename Find>
bool KillUntilNone(Find find) {
  int empty = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::vector<pid_t> found = find();
    empty = found.empty() ? empty + 1 : 0;
    if (empty == 2) {
      return true;
    }
    for (const pid_t process : found) {
      ::kill(process, SIGKILL);
    }
    ::usleep(kPauseMicroseconds);
  }
  return false;
}

bool HasVariable(pid_t process, std::string_view variable) {
  const std::string environment = Slurp("/proc/" + std::to_string(process) + "/environ");
  std::string_view left = environment;
  while (!left.empty()) {
    const std::string_view first = left.substr(0, left.find('\0'));
    if (first == variable) {
      return true;
    }
    left.remove_prefix(std::min(first.size() + 1, left.size()));
  }
  return false;
}

}  // namespace

bool IsReadable() {
  constexpr std::size_t kLongestNumber = 10;
  std::array<char, kLongestNumber + 1> self{};
  const ssize_t bytes = ::readlink("/proc/self", self.data(), self.size());
  // In a PID namespace with the /proc of another one, its numbers are those of other processes.
  return bytes > 0 &&
         std::string_view(self.data(), static_cast<std::size_t>(bytes)) ==
             std::to_string(::getpid()) &&
         ::access("/proc/self/stat", R_OK) == 0;
}

bool HasChildrenBut(pid_t except) {
  const std::string self = std::to_string(::getpid());
  std::ifstream list("/proc/self/task/" + self + "/children");
  if (!list) {  // not every kernel has it
    return !Below(::getpid(), except).empty();
  }
  for (pid_t child = 0; list >> child;) {
    if (child != except) {
      return true;
    }
  }
  return false;
}

std::vector<pid_t> Below(pid_t root, pid_t except) {
  std::map<pid_t, Process> processes;
  for (const pid_t id : All()) {
    processes.emplace(id, Look(id));
  }
  std::multimap<pid_t, pid_t> children;
  for (const auto& [id, process] : processes) {
    if (id != except) {
      children.emplace(process.parent, id);
    }
  }
  std::vector<pid_t> below;
  std::vector<pid_t> open = {root};
  std::set<pid_t> seen = {root};  // the list is not read in one moment: it may contain a circle
  while (!open.empty()) {
    const pid_t parent = open.back();
    open.pop_back();
    const auto [begin, end] = children.equal_range(parent);
    for (auto child = begin; child != end; ++child) {
      if (seen.insert(child->second).second) {
        open.push_back(child->second);
        if (!processes[child->second].hasEnded) {
          below.push_back(child->second);
        }
      }
    }
  }
  return below;
}

void Signal(pid_t root, pid_t except, int signal) {
  for (const pid_t process : Below(root, except)) {
    ::kill(process, signal);
  }
}

bool Kill(pid_t root, pid_t except) {
  return KillUntilNone([&] { return Below(root, except); });
}

bool KillSession(pid_t root, pid_t except, pid_t session) {
  return session < 0 || KillUntilNone([&] {
           std::vector<pid_t> found = Below(root, except);
           std::erase_if(found, [&](pid_t process) { return ::getsid(process) != session; });
           return found;
         });
}

bool HasEnded(pid_t process) { return Look(process).hasEnded; }

bool KillWith(const std::string& variable) {
  return KillUntilNone([&] {
    std::vector<pid_t> found;
    for (const pid_t process : All()) {
      if (process != ::getpid() && HasVariable(process, variable) && !Look(process).hasEnded) {
        found.push_back(process);
      }
    }
    return found;
  });
}

}  // namespace orvane::process_tree
