#include "tests/doubles/PlatformDoubles.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "platform/GDBusModuleResourcesClient.h"
#include "platform/GDBusSystemInventoryClient.h"
#include "platform/PCA9535.h"
#include "platform/PEX8606BA.h"

PlatformDoubles* PlatformDoubles::current = nullptr;

PlatformDoubles::PlatformDoubles(EventLog& log) : log_(log) { current = this; }

PlatformDoubles::~PlatformDoubles() { current = nullptr; }

void PlatformDoubles::Happened(const std::string& event) {
  log_.Add(event);
  if (event == throwAt) {
    throw std::runtime_error(event);
  }
}

namespace {

PlatformDoubles& World() { return *PlatformDoubles::current; }

std::string Hex(unsigned value, int digits) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof text, " 0x%0*X", digits, value));
  return text;
}

std::string Word(unsigned short value) { return Hex(value, 4); }

}  // namespace

// --- System inventory ---------------------------------------------------------------------------

struct GDBusSystemInventoryClient::Connection {};

GDBusSystemInventoryClient::GDBusSystemInventoryClient() {
  World().Happened("inventory: construct");
}

GDBusSystemInventoryClient::~GDBusSystemInventoryClient() {
  World().Happened("inventory: destroy");
}

std::vector<int> GDBusSystemInventoryClient::GetModuleLocations() {
  World().Happened("inventory: GetModuleLocations");
  return World().locations;
}

// --- Module resources ---------------------------------------------------------------------------

struct GDBusModuleResourcesClient::Connection {};

GDBusModuleResourcesClient::GDBusModuleResourcesClient() {
  World().Happened("resources: construct");
}

GDBusModuleResourcesClient::~GDBusModuleResourcesClient() {
  World().Happened("resources: destroy");
}

void GDBusModuleResourcesClient::SetupDeviceAddress(unsigned module) {
  World().Happened("resources: SetupDeviceAddress " + std::to_string(module));
}

std::string GDBusModuleResourcesClient::GetI2CBus() {
  World().Happened("resources: GetI2CBus");
  return World().i2cBus;
}

std::string GDBusModuleResourcesClient::GetSPIDev() {
  World().Happened("resources: GetSPIDev");
  return World().spiDev;
}

// --- PCIe switch --------------------------------------------------------------------------------

PEX8606BA::PEX8606BA() { World().Happened("switch: construct"); }

PEX8606BA::~PEX8606BA() { World().Happened("switch: destroy"); }

bool PEX8606BA::RemoveDevice(unsigned module) {
  World().Happened("switch: RemoveDevice " + std::to_string(module));
  return World().removed;
}

bool PEX8606BA::RescanPciBus(unsigned module) {
  World().Happened("switch: RescanPciBus " + std::to_string(module));
  return World().rescanned;
}

bool PEX8606BA::EnableDevice(unsigned module) {
  World().Happened("switch: EnableDevice " + std::to_string(module));
  return World().enabled;
}

// --- GPIO expander ------------------------------------------------------------------------------

PCA9535::PCA9535(SerialDeviceInterface* bus, unsigned char flags) : bus_(bus) {
  World().expanderBus = bus_;
  World().Happened("expander: construct with " + std::to_string(flags));
}

PCA9535::~PCA9535() { World().Happened("expander: destroy"); }

bool PCA9535::connect(unsigned char address,
                      unsigned short direction,
                      unsigned short outputs,
                      unsigned short mask,
                      unsigned char flags) {
  World().Happened("expander: connect" + Hex(address, 2) + Word(direction) + Word(outputs) +
                   Word(mask) + " " + std::to_string(flags));
  return World().expanderAnswers;
}

void PCA9535::setPortActually(unsigned short outputs, unsigned short mask) {
  World().Happened("expander: setPortActually" + Word(outputs) + Word(mask));
}

unsigned short PCA9535::getPort(unsigned short bits) {
  World().Happened("expander: getPort" + Word(bits));
  return World().port ? World().port(bits) : static_cast<unsigned short>(0);
}

void PCA9535::disconnect(unsigned short mask) {
  World().Happened("expander: disconnect" + Word(mask));
}
