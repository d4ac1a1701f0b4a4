#include "devices/SPIDevOwner.h"

#include <utility>

/// Sets the pointer of its owner to null when it is destroyed.
class SPIDevOwner::OwnedSPIDev final : public SPIDev {
 public:
  OwnedSPIDev(SPIDevOwner& owner,
              std::string path,
              unsigned int speed,
              std::uint8_t mode,
              std::uint8_t bits)
      : SPIDev(std::move(path), speed, mode, bits), owner_(owner) {}
  OwnedSPIDev(const OwnedSPIDev&) = delete;
  OwnedSPIDev& operator=(const OwnedSPIDev&) = delete;
  ~OwnedSPIDev() override { owner_.device_ = nullptr; }

 private:
  SPIDevOwner& owner_;
};

SPIDevOwner::SPIDevOwner(std::string path, unsigned int speed, std::uint8_t mode, std::uint8_t bits)
    : device_(new OwnedSPIDev(*this, std::move(path), speed, mode, bits)) {}

SPIDevOwner::~SPIDevOwner() { Reset(); }

SPIDev* SPIDevOwner::Get() const { return device_; }

void SPIDevOwner::Reset() { delete device_; }
