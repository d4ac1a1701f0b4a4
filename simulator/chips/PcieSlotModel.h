#pragma once

#include <string_view>

namespace orvane {

/// A module's PCIe endpoint as the kernel's attributes show it. It is present and enabled from the
/// start, whatever the module's flash holds; `remove` removes it, `rescan` adds it again, not
/// enabled, and `enable` enables it.
class PcieSlotModel {
 public:
  enum class Step { kRemove, kRescan, kEnable };
  enum class Result {
    kDone,
    kInvalid,  // the text is neither "0" nor "1"
    kAbsent,   // the endpoint, and with it the attribute, is not present
  };

  /// Writes the attribute of `step`: "1", or "0", which for kEnable disables and for the others
  /// does nothing; a newline may follow. A write that fails changes nothing.
  Result Write(Step step, std::string_view text);

  bool Present() const { return present_; }
  bool Enabled() const { return enabled_; }

 private:
  bool present_ = true;
  bool enabled_ = true;
};

}  // namespace orvane
