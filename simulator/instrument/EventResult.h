#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvane {

/// What a program gets for an event.
struct EventResult {
  bool killed = false;  // it gets nothing any more
  int error = 0;        // an errno; 0: success
  std::int64_t value = 0;
  std::vector<std::uint8_t> bytes;
};

/// Likewise, for a call of a D-Bus method.
struct DBusResult {
  bool killed = false;
  std::string error;  // the name of a D-Bus error; empty: success
  std::string text;
  std::vector<int> numbers;
};

}  // namespace orvane
