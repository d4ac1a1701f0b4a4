#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace soak {

using Bytes = std::vector<std::uint8_t>;

/// An update of a module, whose flash holds an older image, with a small image.
struct Update {
  std::string target;
  unsigned slot = 0;
  std::string chip;
  Bytes image;
  Bytes flashFile;  ///< shorter than the flash, or as long
};

/// Every target with every chip.
std::vector<Update> AllUpdates();

/// What the flash holds after the events of a log, which are carried out on a model of the chip.
/// Page programs write the bytes of the image that belong at their address.
/// @throw std::runtime_error when a line of an SPI event cannot be read
Bytes Replay(const Update& update, const std::string& log);

/// What an update can change of a flash lies before this address.
inline constexpr std::size_t kUpdatedBytes = 256U << 10;

/// A fingerprint of the contents of a flash before that address.
std::uint64_t HashOf(const Bytes& flash);

/// The fingerprint after each event of a log that can change the flash, with the one before all
/// events as the first.
std::vector<std::uint64_t> HashesAlong(const Update& update, const std::string& log);

/// Whether the flash holds after kUpdatedBytes what it held before the update.
bool IsUntouchedAbove(const Update& update, const Bytes& flash);

}  // namespace soak
