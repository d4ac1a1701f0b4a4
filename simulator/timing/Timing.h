#pragma once

namespace orvane {

/// What decides how long a flash chip is busy.
enum class Timing {
  kPolls,    // how often it is asked; instrument time is sleeps alone
  kTypical,  // the typical times of its data sheet
  kLongest,  // the longest ones
};

}  // namespace orvane
