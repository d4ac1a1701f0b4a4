#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "companion/module/Step.h"
#include "companion/process/Worker.h"
#include "devices/SPIDev.h"
#include "simulator/chips/NorFlashModel.h"
#include "tests/doubles/ChipKernel.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/FakeClock.h"
#include "tests/doubles/RedirectedFile.h"

namespace companion {

/// What happens to one SPI message.
enum class Fate {
  kCarriedOut,
  kFails,
  kLost,      ///< has no effect, reads zeros and succeeds
  kOnes,      ///< likewise, but reads ones
  kInverted,  ///< the first byte that is read is inverted
};

/// A kernel with a flash chip, whose messages can go wrong.
class MessageKernel : public ChipKernel {
 public:
  using ChipKernel::ChipKernel;

  /// @param number  of the messages that begin with `opcode`, from 1 on
  using Decide = std::function<Fate(std::uint8_t opcode, int number)>;
  Decide decide;

  int Ioctl(int fd, unsigned long request, void* argument) override;

  /// @return the messages so far that begin with `opcode`, as "03 00 10 00"
  [[nodiscard]] std::vector<std::string> Messages(std::uint8_t opcode) const;

 private:
  std::vector<int> numbers_ = std::vector<int>(256);
};

/// An open SPI device with a flash chip behind it.
class FlashMessagesTest : public testing::Test {
 protected:
  explicit FlashMessagesTest(orvane::Chip chip = orvane::Chip::kMicron, std::size_t bufsiz = 4096);
  void TearDown() override;

  FakeClock clock_;
  Console console_;
  orvane::NorFlashModel chip_;
  MessageKernel kernel_;
  RedirectedFile bufsiz_;
  std::unique_ptr<SPIDev> spi_;
  std::atomic<bool> stop_ = false;
  WorkerSide side_{::getppid(), -1};
  Interruption interruption_{stop_, side_};
};

/// @return the text of the StepFailed that is thrown
template <typename Step>
std::string FailureOf(Step step) {
  try {
    step();
  } catch (const StepFailed& failed) {
    return failed.what();
  }
  return "";
}

}  // namespace companion
