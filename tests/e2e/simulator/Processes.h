#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// A process as /proc shows it.
struct Process {
  pid_t id = -1;
  pid_t parent = -1;
  pid_t session = -1;
  char state = '\0';  // 'T': stopped, 'Z': ended
  std::string name;   // at most 15 characters
};

/// Every process that can be read, in no order.
std::vector<Process> AllProcesses();

/// The processes that started with this variable in their environment, without those that have
/// ended. One that ends meanwhile may be there. Of those that go on, one is missing while it
/// executes another program: it has no environment then, for longer when that is read from a disk.
/// @param variable  "NAME=VALUE"
std::vector<Process> ProcessesWith(const std::string& variable);

/// @return the state, '\0' when there is no such process
char StateOf(pid_t process);

/// "name 12 T, ...", for the message of a failed test
std::string Describe(const std::vector<Process>& processes);

/// Asks until the answer is yes, a limited number of times.
/// @return the last answer
bool Eventually(const std::function<bool()>& question);

}  // namespace orvane
