#include "simulator/boards/PcieSlotFiles.h"

#include <cerrno>
#include <cstdio>

namespace orvane {

namespace {

/// "DDDD:BB"
std::string BusAddress(unsigned slot) {
  char text[] = "0000:00";
  static_cast<void>(
      std::snprintf(text, sizeof text, "%04x:%02x", slot >> 8U & 0xFFFFU, slot & 0xFFU));
  return text;
}

}  // namespace

PcieSlotFiles::PcieSlotFiles(unsigned slot)
    : address_(BusAddress(slot) + ":00"),
      addressPath_("/sys/bus/pci/slots/" + std::to_string(slot) + "/address"),
      removePath_("/sys/bus/pci/devices/" + address_ + ".0/remove"),
      enablePath_("/sys/bus/pci/devices/" + address_ + ".0/enable"),
      rescanPath_("/sys/class/pci_bus/" + BusAddress(slot) + "/rescan") {}

std::vector<std::string> PcieSlotFiles::AttributePaths() const {
  return {addressPath_, removePath_, enablePath_, rescanPath_};
}

std::optional<std::string> PcieSlotFiles::ReadAttribute(std::string_view path) {
  if (path == addressPath_) {
    return address_ + "\n";
  }
  if (path == rescanPath_) {
    return "";
  }
  if (!endpoint_.Present()) {
    return std::nullopt;
  }
  return path == removePath_ ? "" : endpoint_.Enabled() ? "1\n" : "0\n";
}

int PcieSlotFiles::WriteAttribute(std::string_view path, std::string_view value) {
  if (path == addressPath_) {
    return EACCES;
  }
  const PcieSlotModel::Step step = path == removePath_   ? PcieSlotModel::Step::kRemove
                                   : path == rescanPath_ ? PcieSlotModel::Step::kRescan
                                                         : PcieSlotModel::Step::kEnable;
  switch (endpoint_.Write(step, value)) {
    case PcieSlotModel::Result::kDone:
      return 0;
    case PcieSlotModel::Result::kInvalid:
      return EINVAL;
    case PcieSlotModel::Result::kAbsent:
      return ENODEV;
  }
  return EIO;
}

}  // namespace orvane
