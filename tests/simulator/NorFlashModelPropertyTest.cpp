// The model against random sessions: what must hold after every step of each, and a second model.
// The same sessions every time; for others, or more:
//   RC_PARAMS="max_success=5000" build/dev/tests/simulator_NorFlashModelPropertyTest

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "simulator/Escape.h"
#include "simulator/NorFlashModel.h"
#include "tests/simulator/FlashSession.h"
#include "tests/simulator/NaiveNorFlash.h"

namespace orvane {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Must run before RapidCheck looks for its parameters, which it does once.
class RepeatableRuns : public testing::Environment {
 public:
  void SetUp() override { ::setenv("RC_PARAMS", "seed=20 max_success=100", /*overwrite=*/0); }
};
const testing::Environment* const kRepeatableRuns =
    testing::AddGlobalTestEnvironment(new RepeatableRuns);

/// The model with the past of the session.
class Flash {
 public:
  explicit Flash(const FlashSession& session) : model_(session.chip) {
    if (session.written) {
      model_.Load(FlashPattern());
    }
    model_.LoadRegisters(session.status, session.configuration);
    const NorFlashFaults& faults = session.faults;
    model_.SetPresent(!faults.absent);
    model_.DropProgram(faults.dropProgram);
    model_.DropErase(faults.dropErase);
    model_.DropRegisterWrite(faults.dropRegisterWrite);
    model_.StayBusyAfter(faults.stayBusyAfter);
    for (const std::uint32_t address : faults.wornPages) {
      model_.WearOutPage(address);
    }
    for (const std::uint32_t address : faults.wornSectors) {
      model_.WearOutSector(address);
    }
  }

  /// @return what came back, from the first byte on
  Bytes Do(const FlashStep& step) {
    if (step.sent.empty()) {
      model_.AdvanceTime(step.wait);
      return {};
    }
    Bytes mosi = step.sent;
    mosi.resize(mosi.size() + step.received, 0x00);
    Bytes miso(mosi.size(), 0xA5);
    model_.Transfer(mosi, miso);
    return miso;
  }

  const NorFlashModel& model() const { return model_; }

 private:
  NorFlashModel model_;
};

Bytes Do(NaiveNorFlash& naive, const FlashStep& step) {
  if (step.sent.empty()) {
    naive.Wait(step.wait);
    return {};
  }
  return naive.Select(step.sent, step.received);
}

NaiveNorFlash Naive(const FlashSession& session) {
  NaiveNorFlash naive(session.chip, session.faults);
  if (session.written) {
    naive.memory = FlashPattern();
  }
  naive.LoadRegisters(session.status, session.configuration);
  return naive;
}

std::string FirstDifference(const Bytes& expected, std::span<const std::uint8_t> actual) {
  if (std::memcmp(expected.data(), actual.data(), kFlashBytes) == 0) {
    return "";
  }
  const auto at = std::mismatch(expected.begin(), expected.end(), actual.begin());
  return HexNumber(static_cast<std::uint32_t>(at.first - expected.begin()), 6) + ": expected " +
         HexNumber(*at.first, 2) + ", got " + HexNumber(*at.second, 2);
}

void BehavesLikeTheNaiveModel(const FlashSession& session) {
  Flash flash(session);
  NaiveNorFlash naive = Naive(session);
  for (const FlashStep& step : session.steps) {
    RC_ASSERT(flash.Do(step) == Do(naive, step));
    RC_ASSERT(flash.model().StatusRegister() == naive.Status());
    RC_ASSERT(flash.model().ConfigurationRegister() == naive.storedConfiguration);
    RC_ASSERT(flash.model().Busy() == naive.Busy());
  }
  RC_ASSERT(FirstDifference(naive.memory, flash.model().Contents()) == "");
}

RC_GTEST_PROP(NorFlashModelProperty, BehavesLikeTheNaiveModel, ()) {
  BehavesLikeTheNaiveModel(*FlashSessions());
}

RC_GTEST_PROP(NorFlashModelProperty, WithFaultsBehavesLikeTheNaiveModel, ()) {
  BehavesLikeTheNaiveModel(*FaultyFlashSessions());
}

}  // namespace
}  // namespace orvane
