#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "simulator/trace/RunObserver.h"
#include "simulator/trace/VcdFile.h"

namespace orvane {

/// Writes the levels of all buses, bit by bit, see VcdFile: CS, CLK, MOSI and MISO of each SPI node, SCL
/// and SDA of each I2C node. The names of signals start with that of the node: "spidev1_0_CS".
///
/// SPI is that of mode 0. MOSI and MISO change when chip select or the clock falls, and keep their level
/// otherwise. A bit takes at least 4 ns in the file: at rates above 250 MHz it is late, until the
/// buses have been idle for as long.
class VcdTrace : public RunObserver {
 public:
  /// @param out  borrowed; what cannot be written shows in its state
  explicit VcdTrace(std::ostream& out);

  void OnStart(std::span<const ObservedModule> modules,
               std::span<const std::string> chassisI2c) override;
  void OnSpi(const ObservedSpi& message) override;
  void OnI2c(const ObservedI2c& transfer) override;
  void OnEnd(std::chrono::nanoseconds at) override;

 private:
  struct SpiBus {
    VcdFile::Signal select;
    VcdFile::Signal clock;
    VcdFile::Signal mosi;
    VcdFile::Signal miso;
    std::chrono::nanoseconds idleSince{0};
  };
  struct I2cBus {
    VcdFile::Signal scl;
    VcdFile::Signal sda;
  };

  void AddSpi(const std::string& path);
  void AddI2c(const std::string& path);
  void DrawSelect(SpiBus& bus, const ObservedSelect& select);
  void DrawSpiBit(const SpiBus& bus, bool mosi, bool miso, Period period);
  void DrawI2cStart(const I2cBus& bus, bool isRepeated);
  void DrawI2cStop(const I2cBus& bus);
  void DrawI2cByte(const I2cBus& bus, std::uint8_t byte, bool acknowledged);
  void DrawI2cBit(const I2cBus& bus, bool high);

  VcdFile file_;
  std::map<std::string, SpiBus, std::less<>> spi_;  // by path
  std::map<std::string, I2cBus, std::less<>> i2c_;  // likewise
  std::chrono::nanoseconds now_{0};                 // what has been drawn ends here
};

}  // namespace orvane
