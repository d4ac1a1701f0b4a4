#pragma once

#include <memory>
#include <string>

#include "simulator/host/RunHooks.h"
#include "simulator/instrument/Instrument.h"

namespace orvane {

/// The system inventory and the module resources of an instrument, as services on a bus. Calls are
/// served from the thread's main loop.
class PlatformServices {
 public:
  struct Wanted {
    bool inventory = true;
    bool resources = true;
  };

  /// @param instrument  borrowed, answers the calls
  /// @param hooks       borrowed
  /// @throw std::runtime_error
  PlatformServices(const std::string& busAddress,
                   Wanted wanted,
                   Instrument& instrument,
                   const RunHooks& hooks);
  PlatformServices(const PlatformServices&) = delete;
  PlatformServices& operator=(const PlatformServices&) = delete;
  ~PlatformServices();

 private:
  struct State;

  std::unique_ptr<State> state_;
};

}  // namespace orvane
