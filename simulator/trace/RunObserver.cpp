#include "simulator/trace/RunObserver.h"

#include <array>
#include <cstddef>

namespace orvane {

std::string_view LineName(Line line) {
  constexpr std::array<std::string_view, 6> kNames = {
      "DONE", "RESET", "QSPI_PRG", "SELECTOR", "ENDPOINT_PRESENT", "ENDPOINT_ENABLED"};
  return kNames.at(static_cast<std::size_t>(line));
}

}  // namespace orvane
