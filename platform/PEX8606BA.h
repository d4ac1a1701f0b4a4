#pragma once

/// The instrument platform's handle on the PCIe switch that the plug-in modules are connected to. A
/// module is named by its slot number. Every operation returns true when it was carried out.
class PEX8606BA {
 public:
  PEX8606BA();
  PEX8606BA(const PEX8606BA&) = delete;
  PEX8606BA& operator=(const PEX8606BA&) = delete;
  ~PEX8606BA();

  /// Removes the module's PCIe device.
  bool RemoveDevice(unsigned module);

  /// Scans the PCIe bus behind the module's port again.
  bool RescanPciBus(unsigned module);

  /// Enables the module's PCIe device.
  bool EnableDevice(unsigned module);
};
