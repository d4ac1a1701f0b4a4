#include "simulator/instrument/Event.h"

#include <cstddef>

#include "simulator/instrument/Escape.h"

namespace orvane {

namespace {

std::string Words(std::string_view first, std::string_view second) {
  return std::string(first).append(" ").append(second);
}

std::string RequestName(const char* direction, SpiSetting setting) {
  return std::string("SPI_IOC_").append(direction).append("_").append(SettingName(setting));
}

std::string Duration(std::chrono::nanoseconds duration) {
  constexpr struct {
    std::int64_t nanoseconds;
    const char* name;
  } kUnits[] = {{1'000'000'000, " s"}, {1'000'000, " ms"}, {1'000, " us"}, {1, " ns"}};
  for (const auto& unit : kUnits) {
    if (duration.count() % unit.nanoseconds == 0) {
      return std::to_string(duration.count() / unit.nanoseconds) + unit.name;
    }
  }
  return "";
}

/// " w 06", " r 40 01"; " r +2" while the bytes received are not known.
class I2cBytes {
 public:
  I2cBytes(std::span<const std::uint8_t> sent,
           std::optional<std::span<const std::uint8_t>> received)
      : sent_(sent), received_(received) {}

  /// To be called in the order of the messages.
  std::string Next(const I2cMessage& message) {
    std::string bytes;
    if (!message.reads) {
      bytes = LimitedHexBytes(Take(sent_, message.length));
    } else if (received_) {
      bytes = LimitedHexBytes(Take(*received_, message.length));
    } else {
      bytes = "+" + std::to_string(message.length);
    }
    const char* const direction = message.reads ? " r" : " w";
    return bytes.empty() ? direction : Words(direction, bytes);
  }

 private:
  static std::span<const std::uint8_t> Take(std::span<const std::uint8_t>& bytes,
                                            std::size_t count) {
    const std::span<const std::uint8_t> taken = bytes.first(count);
    bytes = bytes.subspan(count);
    return taken;
  }

  std::span<const std::uint8_t> sent_;
  std::optional<std::span<const std::uint8_t>> received_;
};

}  // namespace

Event OpenEvent(std::string_view path, std::string_view flags) {
  return {EventKind::kOpen, Words(path, flags)};
}

Event CloseEvent(std::string_view path) { return {EventKind::kClose, std::string(path)}; }

Event CloseEvent(std::int64_t descriptor) {
  return {EventKind::kClose, std::to_string(descriptor)};
}

Event ReadEvent(std::string_view path) { return {EventKind::kRead, std::string(path)}; }

Event ReadEvent(std::string_view path, std::string_view bytes) {
  return {EventKind::kRead, Words(path, Quote(bytes))};
}

Event WriteEvent(std::string_view path, std::string_view bytes) {
  return {EventKind::kWrite, Words(path, Quote(bytes))};
}

Event FileWriteEvent(std::string_view path, std::int64_t bytes) {
  return {EventKind::kWrite, Words(path, "+" + std::to_string(bytes))};
}

Event FileEvent(std::string_view call) { return {EventKind::kFile, std::string(call)}; }

Event ReadSettingEvent(std::string_view path, SpiSetting setting) {
  return {EventKind::kIoctl, Words(path, RequestName("RD", setting))};
}

Event WriteSettingEvent(std::string_view path, SpiSetting setting, std::uint32_t value) {
  return {EventKind::kIoctl, Words(path, Words(RequestName("WR", setting), std::to_string(value)))};
}

Event OtherRequestEvent(std::string_view path, std::uint32_t request) {
  constexpr std::size_t kDigits = 8;
  return {EventKind::kIoctl, Words(path, HexNumber(request, kDigits))};
}

Event SpiEvent(std::string_view path, std::string_view description) {
  return {EventKind::kSpi, Words(path, description)};
}

Event SpiSpeedEvent(std::string_view path, std::uint32_t speedHz, std::uint8_t bitsPerWord) {
  return {EventKind::kSpi,
          std::string(path) + " speed " + std::to_string(speedHz) + " bits " +
              std::to_string(unsigned{bitsPerWord})};
}

Event I2cEvent(std::string_view path,
               std::span<const I2cMessage> messages,
               std::span<const std::uint8_t> sent,
               std::optional<std::span<const std::uint8_t>> received) {
  constexpr std::size_t kAddressDigits = 2;  // more for addresses of ten bits
  std::string text(path);
  I2cBytes bytes(sent, received);
  std::optional<std::uint16_t> address;
  for (const I2cMessage& message : messages) {
    if (message.address != address) {
      address = message.address;
      text.append(" ").append(HexNumber(message.address, kAddressDigits));
    }
    text += bytes.Next(message);
  }
  return {EventKind::kI2c, text};
}

Event SleepEvent(std::chrono::nanoseconds duration) {
  return {EventKind::kSleep, Duration(duration)};
}

Event DBusEvent(std::string_view method) { return {EventKind::kDBus, std::string(method)}; }

Event DBusEvent(std::string_view method, unsigned slot) {
  return {EventKind::kDBus, Words(method, std::to_string(slot))};
}

}  // namespace orvane
