#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "programmers/FlashRouteInterface.h"
#include "programmers/FpgaProgrammerInterface.h"
#include "programmers/lines/GpioProgrammingInterface.h"

class PCA9535;
class SPIDev;

// How the devices of every module type are opened.
inline constexpr std::uint8_t kSpiMode = 0;
inline constexpr std::uint8_t kSpiBitsPerWord = 8;
inline constexpr unsigned char kExpanderFlags = 1;

/// A programmer, and the line map that it borrows (null for a wend). The programmer is destroyed
/// first.
struct ModuleProgrammer {
  std::unique_ptr<GpioProgrammingInterface> lines;
  std::unique_ptr<FpgaProgrammerInterface> programmer;
  FlashRouteInterface* route = nullptr;  ///< the same object as `programmer`, borrowed from it
};

/// What differs between the module types in the run sequence.
struct Target {
  const char* word;               ///< on the command line
  const char* line;               ///< printed before the programmer is created
  std::optional<int> muxChannel;  ///< leads to the expander; none: it is on the module's bus
  bool hasPcieEndpoint;           ///< enumerated again unless the result is UpToDate

  /// Creates the module's programmer, which selects the SPI path of a pyx.
  /// @param expander  borrowed; not used for a wend
  /// @param spi       borrowed, also by the flash driver, which destroys it when it cannot be opened
  ModuleProgrammer (*createProgrammer)(PCA9535* expander, SPIDev* spi, unsigned moduleNumber);
};

/// @return the module type with this word, never destroyed; null for a word that names none
const Target* FindTarget(const std::string& word);

/// @return every module type, in the order wend, dax, pyx1, pyx2; never destroyed
std::span<const Target> AllTargets();

/// Asks the platform's services, and udev for the channel of a mux.
/// @param module  slot number
/// @return the node name of the I2C bus that leads to the module's expander, such as "i2c-1";
///         empty when the module is not populated or has none. Throws what the platform's clients
///         throw.
std::string FindI2CBusName(const Target& target, unsigned module);
