#pragma once

#include <cstdint>
#include <string>

#include "devices/SPIDev.h"

/// Owner of the run's SPIDev. A flash driver destroys the device when the node cannot be opened
/// (MT25QL128::Connect); the owner then learns of it, so that the device is destroyed exactly once,
/// through its virtual destructor.
class SPIDevOwner {
 public:
  /// Creates the device on the heap; the parameters are those of SPIDev.
  SPIDevOwner(std::string path, unsigned int speed, std::uint8_t mode, std::uint8_t bits);
  SPIDevOwner(const SPIDevOwner&) = delete;
  SPIDevOwner& operator=(const SPIDevOwner&) = delete;
  ~SPIDevOwner();

  /// @return the device, still owned here; null once it is destroyed
  [[nodiscard]] SPIDev* Get() const;

  /// Destroys the device now, unless that has happened already.
  void Reset();

 private:
  class OwnedSPIDev;

  SPIDev* device_;
};
