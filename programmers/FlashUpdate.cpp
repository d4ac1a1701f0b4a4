#include "programmers/FlashUpdate.h"

#include "flash/MT25QL128.h"

namespace {

constexpr int kImageAddress = 0;

}  // namespace

FpgaProgrammerInterface::Status RewriteFlash(MT25QL128& flash, const std::string& imagePath) {
  std::cout << "Unlocking flash memory ... " << std::endl;
  flash.UnlockMemory();  // EraseDevice() refuses a chip that stays locked

  std::cout << "Erasing device ... " << std::flush;
  if (flash.EraseDevice(kImageAddress, imagePath) != MT25QL128::kDone) {
    return FpgaProgrammerInterface::EraseFailed;
  }
  std::cout << "done." << std::endl;

  std::cout << "Programming device ... " << std::flush;
  if (flash.ProgramDevice(kImageAddress, imagePath) != MT25QL128::kDone) {
    return FpgaProgrammerInterface::ProgramFailed;
  }
  std::cout << "done." << std::endl;
  return FpgaProgrammerInterface::Success;
}
