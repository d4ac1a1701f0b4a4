#include "platform/PEX8606BA.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/FileDescriptor.h"
#include "devices/PciSlot.h"

namespace {

// Attributes as in the kernel's Documentation/ABI/testing/sysfs-bus-pci.
constexpr std::size_t kBusChars = 7;  // the DDDD:BB of an address DDDD:BB:dd
constexpr std::string_view kSwitchOn = "1";

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

bool SwitchEndpointOn(unsigned module, const char* attribute) {
  const std::optional<std::string> address = ReadPciSlotAddress(module);
  return address && SwitchOn(PciEndpointPath(*address) + "/" + attribute);
}

}  // namespace

PEX8606BA::PEX8606BA() = default;

PEX8606BA::~PEX8606BA() {}

bool PEX8606BA::RemoveDevice(unsigned module) { return SwitchEndpointOn(module, "remove"); }

bool PEX8606BA::RescanPciBus(unsigned module) {
  const std::optional<std::string> address = ReadPciSlotAddress(module);
  return address && SwitchOn("/sys/class/pci_bus/" + address->substr(0, kBusChars) + "/rescan");
}

bool PEX8606BA::EnableDevice(unsigned module) { return SwitchEndpointOn(module, "enable"); }
