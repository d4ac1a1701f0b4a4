// A platform library as an instrument might bring it: the declared classes, nothing behind them but
// an inventory that lists slot 7.
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
bool PCA9535::connect(unsigned char /*address*/,
                      unsigned short /*direction*/,
                      unsigned short /*outputs*/,
                      unsigned short /*mask*/,
                      unsigned char /*flags*/) {
  return false;
}
void PCA9535::setPortActually(unsigned short /*outputs*/, unsigned short /*mask*/) {}
unsigned short PCA9535::getPort(unsigned short /*bits*/) { return 0; }
void PCA9535::disconnect(unsigned short /*mask*/) {}

PEX8606BA::PEX8606BA() = default;
PEX8606BA::~PEX8606BA() {}
bool PEX8606BA::RemoveDevice(unsigned /*module*/) { return false; }
bool PEX8606BA::RescanPciBus(unsigned /*module*/) { return false; }
bool PEX8606BA::EnableDevice(unsigned /*module*/) { return false; }
