#pragma once

#include <array>
#include <string_view>

namespace orvane {

/// The kinds of events on the instrument. A line of the log and a fault rule start with the word
/// for one.
enum class EventKind { kOpen, kClose, kRead, kWrite, kIoctl, kSpi, kI2c, kDBus, kSleep, kFile };

inline constexpr std::array<std::string_view, 10> kEventWords = {
    "open", "close", "read", "write", "ioctl", "spi", "i2c", "dbus", "sleep", "file"};

constexpr std::string_view Word(EventKind kind) {
  return kEventWords.at(static_cast<std::size_t>(kind));
}

}  // namespace orvane
