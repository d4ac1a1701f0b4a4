// Random sessions on the model: checks what must hold after every step, and compares with a second
// model. The sessions are always the same; for others, or more:
//   RC_PARAMS="max_success=5000" build/dev/tests/unit_simulator_chips_NorFlashModelPropertyTest

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "simulator/chips/NorFlashModel.h"
#include "simulator/instrument/Escape.h"
#include "tests/unit/simulator/chips/FlashSession.h"
#include "tests/unit/simulator/chips/NaiveNorFlash.h"
#include "tests/unit/simulator/chips/TakenStep.h"

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

const NorFlashModel& NewChip(Chip chip) {
  static const NorFlashModel micron(Chip::kMicron);
  static const NorFlashModel macronix(Chip::kMacronix);
  return chip == Chip::kMicron ? micron : macronix;
}

/// The model in the state at the start of the session. One object at a time: they share their
/// memory, because mapping new memory takes longer than a session.
class Flash {
 public:
  explicit Flash(const FlashSession& session) : model_(Shared()) {
    model_ = NewChip(session.chip);
    if (session.written) {
      model_.Load(session.Contents());
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

  /// @return what was received, from the first byte on
  Bytes Do(const FlashStep& step) {
    if (step.sent.empty()) {
      model_.AdvanceTime(step.wait);
      return {};
    }
    const Bytes mosi = step.Mosi();
    Bytes miso(mosi.size(), 0xA5);
    model_.Transfer(mosi, miso);
    return miso;
  }

  const NorFlashModel& model() const { return model_; }

 private:
  static NorFlashModel& Shared() {
    static NorFlashModel shared(Chip::kMicron);
    return shared;
  }

  NorFlashModel& model_;
};

template <typename Check>
void AtEveryStep(const FlashSession& session, const Check& check) {
  Flash flash(session);
  FlashView before(flash.model());
  for (const FlashStep& step : session.steps) {
    Bytes answer = flash.Do(step);
    const FlashView after(flash.model());
    check(TakenStep{step.wait, step.Mosi(), std::move(before), std::move(answer), after});
    before = after;
  }
}

// The properties are tested often enough: what sessions must cause, and how often.

struct Event {
  const char* name;
  bool (*in)(const TakenStep& taken, Chip chip);
};

constexpr std::size_t kOften = 5;
const Event kEvents[] = {
    {"program",
     [](const TakenStep& taken, Chip) { return taken.Opcode() == 0x02 && taken.StartsWork(); }},
    {"program of written cells",
     [](const TakenStep& taken, Chip) {
       return taken.Opcode() == 0x02 && !taken.Changes().empty() &&
              taken.Changes()[0].before != 0xFF;
     }},
    {"program past the end of its page",
     [](const TakenStep& taken, Chip) {
       return taken.Opcode() == 0x02 && taken.StartsWork() &&
              taken.Address() % 256 + taken.Length() - 4 > 256;
     }},
    {"program longer than a page",
     [](const TakenStep& taken, Chip) {
       return taken.Opcode() == 0x02 && taken.StartsWork() && taken.Length() > 260;
     }},
    {"subsector erase",
     [](const TakenStep& taken, Chip) {
       return taken.Opcode() == 0x20 && !taken.Changes().empty();
     }},
    {"sector erase",
     [](const TakenStep& taken, Chip) {
       return taken.Opcode() == 0xD8 && !taken.Changes().empty();
     }},
    {"chip erase 60",
     [](const TakenStep& taken, Chip) { return taken.Opcode() == 0x60 && taken.StartsWork(); }},
    {"chip erase c7",
     [](const TakenStep& taken, Chip) { return taken.Opcode() == 0xC7 && taken.StartsWork(); }},
    {"refusal of a program as protected",
     [](const TakenStep& taken, Chip chip) {
       return taken.before.Latch() && !taken.before.busy &&
              taken.Programmed().Overlaps(taken.before.Protected(chip));
     }},
    {"refusal of an erase as protected",
     [](const TakenStep& taken, Chip chip) {
       return taken.before.Latch() && !taken.before.busy &&
              taken.Erased().Overlaps(taken.before.Protected(chip));
     }},
    {"work beside the protected part",
     [](const TakenStep& taken, Chip chip) {
       return taken.StartsWork() && taken.Opcode() != 0x01 && !taken.before.Protected(chip).Empty();
     }},
    {"program without the latch",
     [](const TakenStep& taken, Chip) {
       return !taken.Programmed().Empty() && !taken.before.Latch();
     }},
    {"erase without the latch",
     [](const TakenStep& taken, Chip) { return !taken.Erased().Empty() && !taken.before.Latch(); }},
    {"register write without the latch",
     [](const TakenStep& taken, Chip) { return taken.Opcode() == 0x01 && !taken.before.Latch(); }},
    {"work while busy",
     [](const TakenStep& taken, Chip) {
       return taken.before.busy && (!taken.Erased().Empty() || !taken.Programmed().Empty());
     }},
    {"read while busy",
     [](const TakenStep& taken, Chip) {
       return taken.before.busy && taken.Opcode() == 0x03 && taken.Length() > 4;
     }},
    {"configuration read while busy",
     [](const TakenStep& taken, Chip chip) {
       return chip == Chip::kMacronix && taken.before.busy && taken.Opcode() == 0x15 &&
              taken.Length() > 1;
     }},
    {"cut program",
     [](const TakenStep& taken, Chip) {
       return taken.before.Latch() && taken.Opcode() == 0x02 && taken.Length() <= 4;
     }},
    {"program without data",
     [](const TakenStep& taken, Chip) {
       return taken.before.Latch() && !taken.before.busy && taken.Opcode() == 0x02 &&
              taken.Length() == 4;
     }},
    {"overlong erase",
     [](const TakenStep& taken, Chip) {
       return taken.before.Latch() && taken.Opcode() == 0xD8 && taken.Length() > 4;
     }},
    {"change of the registers",
     [](const TakenStep& taken, Chip) { return taken.after.Stored() != taken.before.Stored(); }},
    {"register write that needs more time",
     [](const TakenStep& taken, Chip) {
       return taken.Waits() && taken.before.busy && taken.after.busy;
     }},
    {"bottom bit set for ever",
     [](const TakenStep& taken, Chip) {
       return (taken.after.configuration & ~taken.before.configuration & 0x08) != 0;
     }},
    {"attempt to clear the bottom bit",
     [](const TakenStep& taken, Chip) {
       return taken.StartsWork() && taken.Opcode() == 0x01 && taken.Length() == 3 &&
              (taken.before.configuration & ~taken.mosi[2] & 0x08) != 0;
     }},
    {"read over the end of the array",
     [](const TakenStep& taken, Chip) {
       return !taken.before.busy && taken.Opcode() == 0x03 && taken.Length() > 4 &&
              taken.Address() + taken.Length() - 4 > kFlashBytes;
     }},
};

TEST(NorFlashModelPropertyTest, SessionsBringAboutEverything) {
  rc::Random random(1);
  std::map<std::string, std::size_t> seen;
  for (int i = 0; i < 200; ++i) {
    const FlashSession session = FlashSessions()(random.split()).value();
    AtEveryStep(session, [&](const TakenStep& taken) {
      for (const Event& event : kEvents) {
        seen[event.name] += event.in(taken, session.chip) ? 1 : 0;
      }
    });
  }
  for (const Event& event : kEvents) {
    EXPECT_GE(seen[event.name], kOften) << event.name;
  }
}

RC_GTEST_PROP(NorFlashModelProperty, NoBitRisesWithoutAnErase, ()) {
  AtEveryStep(*FaultyFlashSessions(), [](const TakenStep& taken) {
    for (const FlashCell& change : taken.Changes()) {
      const bool rises = (change.after & ~change.before) != 0;
      RC_ASSERT(!rises || taken.Erased().Contains(change.address));
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, NothingIsWrittenWithoutTheLatch, ()) {
  AtEveryStep(*FaultyFlashSessions(), [](const TakenStep& taken) {
    if (!taken.before.Latch()) {
      RC_ASSERT(taken.Changes().empty());
      RC_ASSERT(taken.after.Stored() == taken.before.Stored());
      RC_ASSERT(!taken.StartsWork());
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, OnlyWholeCommandsStartWork, ()) {
  const FlashSession session = *FaultyFlashSessions();
  const std::size_t registers = session.chip == Chip::kMacronix ? 2 : 1;
  AtEveryStep(session, [&](const TakenStep& taken) {
    if (taken.StartsWork() && taken.Opcode() == 0x01) {
      RC_ASSERT(taken.Length() > 1U);
      RC_ASSERT(taken.Length() <= 1 + registers);
    } else if (taken.StartsWork()) {
      RC_ASSERT(!taken.Erased().Empty() || !taken.Programmed().Empty());
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, OnlyWriteEnableRaisesTheLatch, ()) {
  AtEveryStep(*FaultyFlashSessions(), [](const TakenStep& taken) {
    if (!taken.before.Latch() && taken.after.Latch()) {
      RC_ASSERT(taken.Opcode() == 0x06);
      RC_ASSERT(taken.Length() == 1U);
      RC_ASSERT(!taken.before.busy);
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, TheLatchIsDownWhenWorkIsDone, ()) {
  AtEveryStep(*FlashSessions(), [](const TakenStep& taken) {
    RC_ASSERT(!taken.after.busy || taken.after.Latch());
    if (taken.before.busy && !taken.after.busy) {
      RC_ASSERT(!taken.after.Latch());
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, NothingChangesWhileBusy, ()) {
  AtEveryStep(*FaultyFlashSessions(), [](const TakenStep& taken) {
    if (!taken.before.busy || taken.Waits()) {
      return;
    }
    RC_ASSERT(taken.Changes().empty());
    RC_ASSERT(taken.after.Stored() == taken.before.Stored());
    if (taken.Opcode() != 0x05) {
      RC_ASSERT(taken.after.status == taken.before.status);
    }
    if (taken.Opcode() != 0x05 && taken.Opcode() != 0x15) {
      RC_ASSERT(taken.answer == Bytes(taken.Length(), 0x00));
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, NothingProtectedChanges, ()) {
  const FlashSession session = *FaultyFlashSessions();
  AtEveryStep(session, [&](const TakenStep& taken) {
    const Range protectedBytes = taken.before.Protected(session.chip);
    for (const FlashCell& change : taken.Changes()) {
      RC_ASSERT(!protectedBytes.Contains(change.address));
    }
    if (taken.Erased().Overlaps(protectedBytes) || taken.Programmed().Overlaps(protectedBytes)) {
      RC_ASSERT(taken.Changes().empty());
      RC_ASSERT(!taken.StartsWork());
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, OnlyAProgramOrAnEraseChangesBytesAndOnlyItsOwn, ()) {
  AtEveryStep(*FaultyFlashSessions(), [](const TakenStep& taken) {
    for (const FlashCell& change : taken.Changes()) {
      RC_ASSERT(taken.Erased().Contains(change.address) ||
                taken.Programmed().Contains(change.address));
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, ProgramsGoRoundInTheirPageAndTheLastBytesStand, ()) {
  AtEveryStep(*FlashSessions(), [](const TakenStep& taken) {
    if (taken.Opcode() != 0x02 || !taken.StartsWork()) {
      return;
    }
    const Range page = taken.Programmed();
    for (const FlashCell& cell : taken.Cells()) {
      if (page.Contains(cell.address)) {
        RC_ASSERT(cell.after == (cell.before & taken.ByteFor(cell.address)));
      }
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, ErasesLeaveTheirWholeUnitBlank, ()) {
  AtEveryStep(*FlashSessions(), [](const TakenStep& taken) {
    if (taken.Opcode() == 0x02 || taken.Opcode() == 0x01 || !taken.StartsWork()) {
      return;
    }
    const Range unit = taken.Erased();
    RC_ASSERT(!unit.Empty());
    for (const FlashCell& cell : taken.Cells()) {
      RC_ASSERT(!unit.Contains(cell.address) || cell.after == 0xFF);
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, ReadsRunOverTheEndOfTheArrayToItsStart, ()) {
  FlashSession session;
  session.written = true;
  Flash flash(session);
  const auto address = *FlashAddresses();
  const auto length = *rc::gen::inRange<std::size_t>(0, 1000);
  const Bytes answer = flash.Do({.sent = {0x03,
                                          static_cast<std::uint8_t>(address >> 16U),
                                          static_cast<std::uint8_t>(address >> 8U),
                                          static_cast<std::uint8_t>(address)},
                                 .received = length});
  for (std::size_t i = 0; i < length; ++i) {
    RC_ASSERT(answer.at(4 + i) == session.Contents()[(address + i) % kFlashBytes]);
  }
}

/// The longest that this program or erase can take.
std::chrono::nanoseconds LongestWork(const TakenStep& taken) {
  if (taken.Opcode() == 0x02) {
    return std::chrono::milliseconds(5);
  }
  return std::chrono::seconds(taken.Length() == 1 ? 256 : 1);  // the chip: a second a sector
}

RC_GTEST_PROP(NorFlashModelProperty, WorkShowsBusyTwoOrThreeTimesOrForItsLongestTime, ()) {
  int left = 0;
  std::chrono::nanoseconds timeLeft{0};
  AtEveryStep(*FlashSessions(), [&](const TakenStep& taken) {
    if (taken.StartsWork()) {
      left = taken.Opcode() == 0x02 ? 2 : taken.Opcode() == 0x01 ? 0 : 3;
      timeLeft = LongestWork(taken);
    } else if (taken.Waits() && left > 0) {
      timeLeft -= taken.wait;
      if (timeLeft.count() <= 0) {
        left = 0;
        RC_ASSERT((taken.after.status & 0x03) == 0x00);
      }
    } else if (taken.Opcode() == 0x05 && left > 0) {
      for (std::size_t i = 1; i < taken.answer.size(); ++i, --left) {
        RC_ASSERT((taken.answer[i] & 0x03) == (left > 0 ? 0x03 : 0x00));
      }
    }
    RC_ASSERT(left <= 0 || taken.after.busy);
  });
}

RC_GTEST_PROP(NorFlashModelProperty, RegistersChangeWhenTheirWriteTimeIsOver, ()) {
  const FlashSession session = *FlashSessions();
  Bytes written;  // by the register write under way
  std::chrono::nanoseconds left{0};
  AtEveryStep(session, [&](const TakenStep& taken) {
    std::pair<int, int> expected = taken.before.Stored();
    if (taken.StartsWork() && taken.Opcode() == 0x01) {
      written.assign(taken.mosi.begin() + 1, taken.mosi.end());
      left = std::chrono::milliseconds(40);
    } else if (taken.Waits() && left.count() > 0) {
      left -= taken.wait;
      RC_ASSERT(taken.after.busy == (left.count() > 0));
      if (left.count() <= 0) {
        expected.first = written.at(0) & 0xFC;
        if (written.size() > 1) {
          RC_ASSERT(session.chip == Chip::kMacronix);
          expected.second = (written[1] & 0xCF) | (expected.second & 0x08);  // bottom: for ever
        }
      }
    }
    RC_ASSERT(taken.after.Stored() == expected);
  });
}

RC_GTEST_PROP(NorFlashModelProperty, RegistersAreReadAtAnyTime, ()) {
  AtEveryStep(*FlashSessions(), [](const TakenStep& taken) {
    if (taken.Opcode() != 0x05 && taken.Opcode() != 0x15) {
      return;
    }
    Bytes expected = {0x00};
    if (taken.Opcode() == 0x15) {
      expected.resize(taken.Length(), taken.before.configuration);
      RC_ASSERT(taken.answer == expected);
    } else if (taken.Length() > 1) {
      RC_ASSERT(taken.answer.at(1) == taken.before.status);
    }
  });
}

RC_GTEST_PROP(NorFlashModelProperty, ReadsChangeNothing, ()) {
  AtEveryStep(*FaultyFlashSessions(), [](const TakenStep& taken) {
    const int opcode = taken.Opcode();
    if (opcode == 0x03 || opcode == 0x15 || opcode == 0x9F ||
        (opcode == 0x05 && !taken.before.busy)) {
      RC_ASSERT(taken.Changes().empty());
      RC_ASSERT(taken.after.status == taken.before.status);
      RC_ASSERT(taken.after.configuration == taken.before.configuration);
    }
  });
}

// The second model.

Bytes Do(NaiveNorFlash& naive, const FlashStep& step) {
  if (step.sent.empty()) {
    naive.Wait(step.wait);
    return {};
  }
  return naive.Select(step.sent, step.received);
}

/// The second model in the state at the start of the session. One object at a time, too.
NaiveNorFlash Naive(const FlashSession& session) {
  static Bytes memory;
  memory = session.Contents();
  NaiveNorFlash naive(session.chip, session.faults, memory);
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
    RC_ASSERT(flash.model().ConfigurationRegister() == naive.Configuration());
    RC_ASSERT(flash.model().Busy() == naive.Busy());
  }
  RC_ASSERT(FirstDifference(naive.Memory(), flash.model().Contents()) == "");
}

RC_GTEST_PROP(NorFlashModelProperty, BehavesLikeTheNaiveModel, ()) {
  BehavesLikeTheNaiveModel(*FlashSessions());
}

RC_GTEST_PROP(NorFlashModelProperty, WithFaultsBehavesLikeTheNaiveModel, ()) {
  BehavesLikeTheNaiveModel(*FaultyFlashSessions());
}

}  // namespace
}  // namespace orvane
