#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvane {

/// Which processes an event ends, before anything comes back from it.
enum class Killed {
  kNo,
  kCaller,   // the process that caused the event
  kSession,  // every process of its session
  kAll,      // every process of the command
};

/// The result of an event for the program.
struct EventResult {
  Killed killed = Killed::kNo;  // otherwise the program gets no result
  int error = 0;                // an errno; 0: success
  std::int64_t value = 0;
  std::vector<std::uint8_t> bytes;
};

/// The same for a call of a D-Bus method.
struct DBusResult {
  Killed killed = Killed::kNo;
  std::string error;  // the name of a D-Bus error; empty: success
  std::string text;
  std::vector<int> numbers;
};

}  // namespace orvane
