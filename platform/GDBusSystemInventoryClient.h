#pragma once

#include <memory>
#include <vector>

/// The instrument platform's client of the system inventory. Every operation may throw
/// std::runtime_error, the constructor too.
class GDBusSystemInventoryClient {
 public:
  /// Connects to the service's bus.
  GDBusSystemInventoryClient();
  GDBusSystemInventoryClient(const GDBusSystemInventoryClient&) = delete;
  GDBusSystemInventoryClient& operator=(const GDBusSystemInventoryClient&) = delete;
  ~GDBusSystemInventoryClient();

  /// @return the populated module locations (slot numbers), in the service's order
  std::vector<int> GetModuleLocations();

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
};
