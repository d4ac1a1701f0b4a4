#pragma once

#include <memory>
#include <string>

/// The instrument platform's client of the service that knows which device nodes belong to a
/// module. Every operation may throw std::runtime_error, the constructor too.
class GDBusModuleResourcesClient {
 public:
  /// Connects to the service's bus.
  GDBusModuleResourcesClient();
  GDBusModuleResourcesClient(const GDBusModuleResourcesClient&) = delete;
  GDBusModuleResourcesClient& operator=(const GDBusModuleResourcesClient&) = delete;
  ~GDBusModuleResourcesClient();

  /// Selects the module, by slot number, that the following queries are about.
  void SetupDeviceAddress(unsigned module);

  /// @return the I2C bus node name of the selected module ("i2c-1"), empty if it has none
  std::string GetI2CBus();

  /// @return the spidev node name of the selected module ("spidev1.0"), empty if it has none
  std::string GetSPIDev();

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
};
