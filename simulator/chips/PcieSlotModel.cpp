#include "simulator/chips/PcieSlotModel.h"

namespace orvane {

PcieSlotModel::Result PcieSlotModel::Write(Step step, std::string_view text) {
  if (step != Step::kRescan && !present_) {
    return Result::kAbsent;
  }
  if (text.ends_with('\n')) {
    text.remove_suffix(1);
  }
  if (text != "0" && text != "1") {
    return Result::kInvalid;
  }
  const bool on = text == "1";
  switch (step) {
    case Step::kRemove:
      present_ = present_ && !on;
      enabled_ = enabled_ && !on;
      break;
    case Step::kRescan:
      present_ = present_ || on;
      break;
    case Step::kEnable:
      enabled_ = on;
      break;
  }
  return Result::kDone;
}

}  // namespace orvane
