#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "simulator/instrument/EventKind.h"
#include "simulator/instrument/I2cMessage.h"
#include "simulator/instrument/SpiSettings.h"

namespace orvane {

/// An event of the instrument: a line of the log without its result, and what fault rules match.
/// The functions below compose every text; no code parses it.
struct Event {
  EventKind kind;
  std::string text;
};

/// @param flags  as OpenFlagsText shows them
Event OpenEvent(std::string_view path, std::string_view flags);
Event CloseEvent(std::string_view path);
/// A close of a negative descriptor.
Event CloseEvent(std::int64_t descriptor);

/// A read before it is carried out.
Event ReadEvent(std::string_view path);
/// A read that has been carried out.
Event ReadEvent(std::string_view path, std::string_view bytes);

/// A write to an attribute.
Event WriteEvent(std::string_view path, std::string_view bytes);
/// A write to an ordinary file, of which only the length is shown.
Event FileWriteEvent(std::string_view path, std::int64_t bytes);

/// A call that changes folders, or synchronises or locks a file: "unlinkat lock".
Event FileEvent(std::string_view call);

Event ReadSettingEvent(std::string_view path, SpiSetting setting);
Event WriteSettingEvent(std::string_view path, SpiSetting setting, std::uint32_t value);
/// A request that no device of the instrument has.
Event OtherRequestEvent(std::string_view path, std::uint32_t request);

/// @param description  of all chip selects
Event SpiEvent(std::string_view path, std::string_view description);
/// For the log only, no fault rule applies: settings that differ from the last message to this
/// node.
Event SpiSpeedEvent(std::string_view path, std::uint32_t speedHz, std::uint8_t bitsPerWord);

/// @param sent      of all messages that write, in their order
/// @param received  of all messages that read, likewise; none: only the lengths are known
Event I2cEvent(std::string_view path,
               std::span<const I2cMessage> messages,
               std::span<const std::uint8_t> sent,
               std::optional<std::span<const std::uint8_t>> received = std::nullopt);

/// In the largest unit that expresses the duration as a whole number.
Event SleepEvent(std::chrono::nanoseconds duration);

Event DBusEvent(std::string_view method);
Event DBusEvent(std::string_view method, unsigned slot);

}  // namespace orvane
