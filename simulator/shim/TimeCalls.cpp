// The sleeps, and the monotonic clock.

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "simulator/shim/Interpose.h"
#include "simulator/shim/LinkEnvironment.h"
#include "simulator/shim/LinkProtocol.h"
#include "simulator/shim/ProgramTime.h"
#include "simulator/shim/ShimLink.h"

namespace {

using namespace orvane;
using link::Action;
using link::Answer;
using link::Op;
using shim::AskBare;
using shim::Fail;
using shim::kNanosecondsPerSecond;
using shim::Nanoseconds;

constexpr std::int64_t kNanosecondsPerMicrosecond = 1'000;

// --- Sleeping -----------------------------------------------------------------------------------

/// Reports a sleep of this length, unless it is 0 or less.
/// @param error  set to 0, or to the errno of the call when the real call is not to be made
/// @return whether to make the real call
bool AskSleep(std::int64_t nanoseconds, int& error) {
  error = 0;
  if (nanoseconds <= 0 || !shim::IsLinked()) {
    return true;
  }
  Answer answer{};
  AskBare({.op = Op::kSleep, .a = nanoseconds}, answer);
  error = answer.action == Action::kDone ? answer.error : 0;
  return answer.action != Action::kDone;
}

// --- The monotonic clock ------------------------------------------------------------------------

/// By how many nanoseconds each read of the monotonic clock advances it.
std::int64_t ClockStep() {
  static std::int64_t step = -1;  // not looked up yet
  if (step < 0) {
    const char* const text = shim::IsOnInstrument() ? shim::ClockStepText() : nullptr;
    step = text == nullptr ? 0 : std::strtoll(text, nullptr, 10);
  }
  return step;
}

/// By how many nanoseconds the program's clock is ahead of the machine's.
std::atomic<std::int64_t> clockLead = 0;

timespec TimeSpec(std::int64_t nanoseconds) {
  return {.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond),
          .tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond)};
}

bool IsInstrumentTime(clockid_t clock) {
  return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE ||
         clock == CLOCK_MONOTONIC_RAW;
}

/// @param now  by the machine's clock
/// @return how many nanoseconds the program's clock is ahead of it
std::int64_t LeadOf(clockid_t clock, const timespec& now) {
  const TimePage* const time = IsInstrumentTime(clock) ? shim::ProgramTime() : nullptr;
  if (time != nullptr) {
    return time->Now() - Nanoseconds(now);
  }
  return clock == CLOCK_MONOTONIC ? clockLead.load() : 0;
}

/// Converts a time of the program's clock to the machine's clock, which the real sleep uses.
/// @param now  by the machine's clock
/// @return nanoseconds from `now` until then
std::int64_t ToMachineTime(clockid_t clock, const timespec& now, timespec& time) {
  const std::int64_t nanoseconds = Nanoseconds(time) - LeadOf(clock, now);
  time = TimeSpec(nanoseconds < 0 ? 0 : nanoseconds);
  return nanoseconds - Nanoseconds(now);
}

bool IsValid(const timespec* time) {
  return time != nullptr && time->tv_sec >= 0 && time->tv_nsec >= 0 &&
         time->tv_nsec < kNanosecondsPerSecond;
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's names are reserved
extern "C" {

#pragma GCC visibility push(default)

unsigned int sleep(unsigned int seconds) {
  int error = 0;
  if (AskSleep(std::int64_t{seconds} * kNanosecondsPerSecond, error)) {
    return NEXT(sleep)(seconds);
  }
  return error != 0 ? seconds : 0;
}

int usleep(useconds_t microseconds) {
  int error = 0;
  if (AskSleep(std::int64_t{microseconds} * kNanosecondsPerMicrosecond, error)) {
    return NEXT(usleep)(microseconds);
  }
  return error != 0 ? Fail(error) : 0;
}

int nanosleep(const timespec* wanted, timespec* left) {
  int error = 0;
  if (!IsValid(wanted) || AskSleep(Nanoseconds(*wanted), error)) {
    return NEXT(nanosleep)(wanted, left);
  }
  if (error != 0 && left != nullptr) {
    *left = *wanted;
  }
  return error != 0 ? Fail(error) : 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (TimePage* const page = IsInstrumentTime(clock) ? shim::ProgramTime() : nullptr;
      page != nullptr) {
    *time = TimeSpec(shim::MovesTime(__builtin_return_address(0)) ? page->Look() : page->Now());
    return 0;
  }
  const int result = NEXT(clock_gettime)(clock, time);
  if (result == 0 && clock == CLOCK_MONOTONIC && ClockStep() > 0) {
    *time = TimeSpec(Nanoseconds(*time) + (clockLead += ClockStep()));
  }
  return result;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* left) {
  if (!IsValid(wanted)) {
    return NEXT(clock_nanosleep)(clock, flags, wanted, left);
  }
  const bool isAbsolute = (flags & TIMER_ABSTIME) != 0;
  timespec machine = *wanted;
  std::int64_t nanoseconds = Nanoseconds(machine);
  timespec now{};
  if (isAbsolute && NEXT(clock_gettime)(clock, &now) == 0) {
    nanoseconds = ToMachineTime(clock, now, machine);
  }
  int error = 0;
  if (AskSleep(nanoseconds, error)) {
    return NEXT(clock_nanosleep)(clock, flags, &machine, left);
  }
  if (error != 0 && left != nullptr && !isAbsolute) {
    *left = *wanted;
  }
  return error;  // not in errno
}

#pragma GCC visibility pop

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
