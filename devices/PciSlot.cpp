#include "devices/PciSlot.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/FileDescriptor.h"

namespace {

// Attributes as in the kernel's Documentation/ABI/testing/sysfs-bus-pci.
constexpr std::string_view kAddressPattern = "DDDD:BB:dd";

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

}  // namespace

std::string PciSlotAddressPath(unsigned slot) {
  return "/sys/bus/pci/slots/" + std::to_string(slot) + "/address";
}

std::optional<std::string> ReadPciSlotAddress(unsigned slot) {
  const std::string path = PciSlotAddressPath(slot);
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

std::string PciEndpointPath(const std::string& address) {
  return "/sys/bus/pci/devices/" + address + ".0";
}
