#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace orvane {

/// What decides how long a flash chip is busy.
enum class Timing {
  kPolls,    // how often it is asked; instrument time is sleeps alone
  kTypical,  // the typical times of its data sheet
  kLongest,  // the longest ones
};

/// Their words, in the order of their values.
inline constexpr std::array<std::string_view, 3> kTimingWords = {"polls", "typical", "longest"};

constexpr std::string_view Word(Timing timing) {
  return kTimingWords.at(static_cast<std::size_t>(timing));
}

}  // namespace orvane
