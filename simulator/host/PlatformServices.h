#pragma once

#include <functional>
#include <memory>
#include <string>

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

  /// @param instrument   borrowed, answers the calls
  /// @param beforeEvent  run before each call is handed to the instrument
  /// @throw std::runtime_error
  PlatformServices(const std::string& busAddress,
                   Wanted wanted,
                   Instrument& instrument,
                   std::function<void()> beforeEvent);
  PlatformServices(const PlatformServices&) = delete;
  PlatformServices& operator=(const PlatformServices&) = delete;
  ~PlatformServices();

 private:
  struct State;

  std::unique_ptr<State> state_;
};

}  // namespace orvane
