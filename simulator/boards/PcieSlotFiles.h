#pragma once

#include "simulator/boards/AttributeFiles.h"
#include "simulator/chips/PcieSlotModel.h"

namespace orvane {

/// The kernel's attributes of a slot's PCIe endpoint. In its address, all hexadecimal, the bus BB
/// is the low byte of the slot number and the domain DDDD the 16 bits above it:
///   /sys/bus/pci/slots/<slot>/address                           "DDDD:BB:00"
///   /sys/bus/pci/devices/DDDD:BB:00.0/remove, enable            only while it is present
///   /sys/class/pci_bus/DDDD:BB/rescan
class PcieSlotFiles : public AttributeFiles {
 public:
  explicit PcieSlotFiles(unsigned slot);

  const PcieSlotModel& Endpoint() const { return endpoint_; }

  std::vector<std::string> AttributePaths() const override;
  std::optional<std::string> ReadAttribute(std::string_view path) override;
  int WriteAttribute(std::string_view path, std::string_view value) override;

 private:
  PcieSlotModel endpoint_;
  std::string address_;  // "DDDD:BB:00"
  std::string addressPath_;
  std::string removePath_;
  std::string enablePath_;
  std::string rescanPath_;
};

}  // namespace orvane
