#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace orvane {

/// A module's PCIe endpoint as the kernel's attributes show it. It is there and enabled from the
/// start, whatever the module's flash holds; `remove` makes it vanish, `rescan` brings it back, not
/// enabled, and `enable` enables it.
class PcieSlotModel {
 public:
  enum class Step { kRemove, kRescan, kEnable };
  enum class Result {
    kDone,
    kInvalid,  // the text is neither "0" nor "1"
    kAbsent,   // the endpoint, and with it the attribute, is not there
    kFailed,   // as told
  };

  /// Writes the attribute of `step`: "1", or "0", which for kEnable disables and for the others
  /// does nothing; a newline may follow. What fails changes nothing.
  Result Write(Step step, std::string_view text);

  bool Present() const { return present_; }
  bool Enabled() const { return enabled_; }

  /// A fault: from now on the step fails, or no longer.
  void SetFailing(Step step, bool failing) { failing_[Index(step)] = failing; }
  /// A fault: from now on the step is acknowledged but not done, or done again.
  void SetLost(Step step, bool lost) { lost_[Index(step)] = lost; }

 private:
  static constexpr std::size_t kSteps = 3;
  static std::size_t Index(Step step) { return static_cast<std::size_t>(step); }

  bool present_ = true;
  bool enabled_ = true;
  std::array<bool, kSteps> failing_{};
  std::array<bool, kSteps> lost_{};
};

}  // namespace orvane
