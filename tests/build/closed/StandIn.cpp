// A platform library as on an instrument: the declared classes. Only the inventory does something:
// it lists slot 7. What only the programmers call is in another file, so that it is a member of its
// own in a static library.
#include "platform/GDBusModuleResourcesClient.h"
#include "platform/GDBusSystemInventoryClient.h"
#include "platform/PCA9535.h"
#include "platform/PEX8606BA.h"

struct GDBusSystemInventoryClient::Connection {};
GDBusSystemInventoryClient::GDBusSystemInventoryClient() = default;
GDBusSystemInventoryClient::~GDBusSystemInventoryClient() = default;
std::vector<int> GDBusSystemInventoryClient::GetModuleLocations() { return {7}; }

struct GDBusModuleResourcesClient::Connection {};
GDBusModuleResourcesClient::GDBusModuleResourcesClient() = default;
GDBusModuleResourcesClient::~GDBusModuleResourcesClient() = default;
void GDBusModuleResourcesClient::SetupDeviceAddress(unsigned /*module*/) {}
std::string GDBusModuleResourcesClient::GetI2CBus() { return "i2c-of-the-stand-in"; }
std::string GDBusModuleResourcesClient::GetSPIDev() { return ""; }

PCA9535::PCA9535(SerialDeviceInterface* bus, unsigned char /*flags*/) : bus_(bus) {}
PCA9535::~PCA9535() { static_cast<void>(bus_); }

PEX8606BA::PEX8606BA() = default;
PEX8606BA::~PEX8606BA() {}
bool PEX8606BA::RemoveDevice(unsigned /*module*/) { return false; }
bool PEX8606BA::RescanPciBus(unsigned /*module*/) { return false; }
bool PEX8606BA::EnableDevice(unsigned /*module*/) { return false; }
