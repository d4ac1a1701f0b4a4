#include "platform/GDBusModuleResourcesClient.h"

#include "platform/linux/SystemBus.h"

// The interface is described in org.orvane.ModuleResources1.xml. The service keeps no state
// between calls, so the selected module is kept here and sent with every query.
struct GDBusModuleResourcesClient::Connection {
  SystemBus bus{"org.orvane.ModuleResources1", "/org/orvane/ModuleResources1"};
  unsigned module = 0;
};

GDBusModuleResourcesClient::GDBusModuleResourcesClient()
    : connection_(std::make_unique<Connection>()) {}

GDBusModuleResourcesClient::~GDBusModuleResourcesClient() = default;

void GDBusModuleResourcesClient::SetupDeviceAddress(unsigned module) {
  connection_->module = module;
}

std::string GDBusModuleResourcesClient::GetI2CBus() {
  return connection_->bus.CallForText("GetI2CBus", connection_->module);
}

std::string GDBusModuleResourcesClient::GetSPIDev() {
  return connection_->bus.CallForText("GetSPIDev", connection_->module);
}
