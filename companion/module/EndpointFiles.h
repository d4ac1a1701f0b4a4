#pragma once

#include <string>

#include "companion/module/ModuleInterface.h"

namespace companion {

/// The PCIe endpoint of a pyx below /sys/bus/pci, where its slot is found there.
class EndpointFiles {
 public:
  /// @param slot  number of the physical slot
  explicit EndpointFiles(unsigned slot) : slot_(slot) {}

  /// @return what two looks in a row say, or three for kNotListed; kUnknown when what is found
  ///         there cannot be read
  [[nodiscard]] Endpoint State() const;

  /// Removes the endpoint where it is there, scans its bus again and enables it, with the platform's
  /// switch, and looks at each step. Where the slot is not found, what the switch returns decides.
  /// @return the step that failed, for a reader; empty when the endpoint is enabled
  [[nodiscard]] std::string EnumerateAgain() const;

 private:
  [[nodiscard]] Endpoint Look() const;
  /// Repeats a step until the endpoint is as it should be.
  template <typename Step, typename Wanted>
  [[nodiscard]] bool Reach(Step step, Wanted isWanted) const;
  [[nodiscard]] std::string EnumerateUnseen() const;

  unsigned slot_;
};

}  // namespace companion
