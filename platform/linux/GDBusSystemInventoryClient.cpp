#include "platform/GDBusSystemInventoryClient.h"

#include "platform/linux/SystemBus.h"

// The interface is described in org.orvane.SystemInventory1.xml.
struct GDBusSystemInventoryClient::Connection {
  SystemBus bus{"org.orvane.SystemInventory1", "/org/orvane/SystemInventory1"};
};

GDBusSystemInventoryClient::GDBusSystemInventoryClient()
    : connection_(std::make_unique<Connection>()) {}

GDBusSystemInventoryClient::~GDBusSystemInventoryClient() = default;

std::vector<int> GDBusSystemInventoryClient::GetModuleLocations() {
  return connection_->bus.CallForNumbers("GetModuleLocations");
}
