#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orvane {

/// One I2C adapter, as the kernel shows it: i2c-<number>.
struct I2cAdapter {
  unsigned number = 0;
  std::string name;                 // its "name" attribute
  std::optional<unsigned> parent;   // the adapter with the multiplexer; none: a root adapter
  std::optional<unsigned> slot;     // the module it leads to; none: a bus of the chassis
  std::optional<unsigned> channel;  // of the multiplexer; none: a root adapter

  std::string BusName() const { return "i2c-" + std::to_string(number); }
};

/// A chip on the bus of an adapter that a driver of the kernel has taken: a multiplexer.
struct I2cClient {
  unsigned bus = 0;     // the number of the adapter
  std::string busName;  // "2-0070": bus and address
  std::string name;     // its "name" attribute
};

/// What the adapters depend on: one module.
struct I2cUser {
  unsigned slot;
  bool hasMux;
};

/// Every adapter of an instrument: i2c-<slot> for each module; i2c-0 and i2c-10, buses of the
/// chassis, where these numbers are free; two channels of each multiplexer, numbered from 11 on,
/// first those of modules in the order given, then those of i2c-10. A search for a part of the name
/// "i2c-1" finds i2c-10 and its channels too, and has to reject them.
std::vector<I2cAdapter> PlanI2cAdapters(const std::vector<I2cUser>& users);

/// The multiplexer of each adapter that has channels, at address 0x70, in the order of the channels.
std::vector<I2cClient> PlanI2cClients(const std::vector<I2cAdapter>& adapters);

}  // namespace orvane
