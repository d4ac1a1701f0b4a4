#include "simulator/chips/ZynqModel.h"

#include "simulator/images/BootImage.h"

namespace orvane {
namespace {

constexpr std::chrono::nanoseconds kClearTime{0};  // the boot ROM reads the flash at once

bool CanBootFrom(const NorFlashModel& flash) {
  return flash.Bootable() && HasPlausibleBootHeader(flash.FirstSector());
}

}  // namespace

ZynqModel::ZynqModel(NorFlashModel& flash, DonePolicy policy)
    : flash_(flash), boot_(policy, kClearTime, CanBootFrom(flash)), configuration_(flash) {
  configuration_.Follow(boot_.Configured());
}

void ZynqModel::WriteQspiPrg(std::string_view value) {
  if (value == "0" || value == "1") {
    controllerOwnsFlash_ = value == "1";
    Update();
  }
}

void ZynqModel::WriteHwReset(std::string_view value) {
  if (value == "0" || value == "1") {
    inReset_ = value == "0";
    Update();
  }
}

void ZynqModel::AdvanceTime(std::chrono::nanoseconds by) {
  boot_.AdvanceTime(by);
  configuration_.Follow(boot_.Configured());
}

void ZynqModel::Update() {
  boot_.Update(inReset_, !controllerOwnsFlash_ && CanBootFrom(flash_));
  configuration_.Follow(boot_.Configured());
}

}  // namespace orvane
