#include "app/ModuleResources.h"

#include <algorithm>
#include <vector>

#include "platform/GDBusModuleResourcesClient.h"
#include "platform/GDBusSystemInventoryClient.h"

namespace {

/// @param query  the operation to call once the client has been told the module
/// @return its answer; empty, without a call, when the module is not populated
std::string QueryResource(unsigned module, std::string (GDBusModuleResourcesClient::*query)()) {
  if (!checkAddress(static_cast<int>(module))) {
    return "";
  }
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(module);
  return (client.*query)();
}

}  // namespace

bool checkAddress(int module) {
  GDBusSystemInventoryClient client;
  const std::vector<int> locations = client.GetModuleLocations();
  return std::find(locations.begin(), locations.end(), module) != locations.end();
}

std::string getSolutionI2C(unsigned module) {
  return QueryResource(module, &GDBusModuleResourcesClient::GetI2CBus);
}

std::string getSolutionSpiDev(unsigned module) {
  return QueryResource(module, &GDBusModuleResourcesClient::GetSPIDev);
}
