#include "platform/PEX8606BA.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "base/FileDescriptor.h"

namespace {

// Attributes as in the kernel's Documentation/ABI/testing/sysfs-bus-pci.
constexpr std::string_view kAddressPattern = "DDDD:BB:dd";  // domain, bus, device; hexadecimal
constexpr std::size_t kBusChars = 7;                        // the DDDD:BB of it
constexpr std::string_view kSwitchOn = "1";

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool IsWellFormed(std::string_view address) {
  return std::equal(address.begin(),
                    address.end(),
                    kAddressPattern.begin(),
                    kAddressPattern.end(),
                    [](char c, char wanted) { return wanted == ':' ? c == ':' : IsHexDigit(c); });
}

/// @return the DDDD:BB:dd of the device in the physical slot, or nothing when the slot's attribute
///         cannot be read or holds anything else
std::optional<std::string> ReadSlotAddress(unsigned slot) {
  const std::string path = "/sys/bus/pci/slots/" + std::to_string(slot) + "/address";
  const FileDescriptor file(::open(path.c_str(), O_RDONLY));
  if (!file.IsOpen()) {
    return std::nullopt;
  }
  char text[kAddressPattern.size() + 2];  // the address, its newline, one byte too many
  const ssize_t count = ::read(file.Get(), text, sizeof text);
  if (count < 0) {
    return std::nullopt;
  }
  std::string_view address(text, static_cast<std::size_t>(count));
  if (address.ends_with('\n')) {
    address.remove_suffix(1);
  }
  if (!IsWellFormed(address)) {
    return std::nullopt;
  }
  return std::string(address);
}

bool SwitchOn(const std::string& path) {
  FileDescriptor file(::open(path.c_str(), O_WRONLY));
  if (!file.IsOpen()) {
    return false;
  }
  const bool written =
      ::write(file.Get(), kSwitchOn.data(), kSwitchOn.size()) == ssize_t{kSwitchOn.size()};
  const bool closed = file.Close() == 0;
  return written && closed;
}

/// The module's endpoint is function 0 of the device in its slot.
bool SwitchEndpointOn(unsigned module, const char* attribute) {
  const std::optional<std::string> address = ReadSlotAddress(module);
  return address && SwitchOn("/sys/bus/pci/devices/" + *address + ".0/" + attribute);
}

}  // namespace

PEX8606BA::PEX8606BA() = default;

PEX8606BA::~PEX8606BA() {}

bool PEX8606BA::RemoveDevice(unsigned module) { return SwitchEndpointOn(module, "remove"); }

bool PEX8606BA::RescanPciBus(unsigned module) {
  const std::optional<std::string> address = ReadSlotAddress(module);
  return address && SwitchOn("/sys/class/pci_bus/" + address->substr(0, kBusChars) + "/rescan");
}

bool PEX8606BA::EnableDevice(unsigned module) { return SwitchEndpointOn(module, "enable"); }
