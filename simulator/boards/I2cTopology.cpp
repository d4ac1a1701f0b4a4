#include "simulator/boards/I2cTopology.h"

#include <algorithm>

namespace orvane {

namespace {

constexpr unsigned kControllerBus = 0;
constexpr unsigned kChassisBus = 10;
constexpr unsigned kFirstChannelBus = 11;
constexpr unsigned kMuxChannels = 2;
constexpr const char* kMuxAddress = "-0070";  // as the kernel writes it
constexpr const char* kMuxName = "pca9540";   // the chip with two channels

class Planner {
 public:
  explicit Planner(const std::vector<I2cUser>& users) : users_(users) {}

  std::vector<I2cAdapter> Plan() {
    for (const I2cUser& user : users_) {
      adapters_.push_back({.number = user.slot,
                           .name = "Orvane slot " + std::to_string(user.slot),
                           .slot = user.slot});
    }
    const bool chassisBus = !IsTaken(kChassisBus);
    for (const unsigned bus : {kControllerBus, kChassisBus}) {
      if (!IsTaken(bus)) {
        adapters_.push_back({.number = bus, .name = "Orvane chassis"});
      }
    }
    for (const I2cUser& user : users_) {
      if (user.hasMux) {
        AddChannels(user.slot, user.slot);
      }
    }
    if (chassisBus) {
      AddChannels(kChassisBus, std::nullopt);
    }
    return adapters_;
  }

 private:
  bool IsTaken(unsigned number) const {
    return std::any_of(adapters_.begin(), adapters_.end(), [&](const I2cAdapter& adapter) {
      return adapter.number == number;
    });
  }

  void AddChannels(unsigned parent, std::optional<unsigned> slot) {
    for (unsigned channel = 0; channel < kMuxChannels; ++channel) {
      while (IsTaken(next_)) {
        ++next_;
      }
      // The name that the kernel's multiplexer core gives.
      adapters_.push_back({.number = next_,
                           .name = "i2c-" + std::to_string(parent) + "-mux (chan_id " +
                                   std::to_string(channel) + ")",
                           .parent = parent,
                           .slot = slot,
                           .channel = channel});
    }
  }

  const std::vector<I2cUser>& users_;
  std::vector<I2cAdapter> adapters_;
  unsigned next_ = kFirstChannelBus;
};

}  // namespace

std::vector<I2cAdapter> PlanI2cAdapters(const std::vector<I2cUser>& users) {
  return Planner(users).Plan();
}

std::vector<I2cClient> PlanI2cClients(const std::vector<I2cAdapter>& adapters) {
  std::vector<I2cClient> clients;
  for (const I2cAdapter& adapter : adapters) {
    if (adapter.channel == 0U) {
      const unsigned bus = adapter.parent.value_or(0);
      clients.push_back(
          {.bus = bus, .busName = std::to_string(bus) + kMuxAddress, .name = kMuxName});
    }
  }
  return clients;
}

}  // namespace orvane
