#include "proofs/soak/Plan.h"

#include <signal.h>

#include <array>
#include <cstring>
#include <random>

namespace soak {

namespace {

constexpr std::uint64_t kMiB = 1U << 20;
constexpr std::uint64_t kPageBytes = 4096;

/// Numbers that are the same with every library.
class Random {
 public:
  Random(std::uint64_t seed, std::uint64_t index) : engine_(seed * 1'000'003 + index) {}

  /// @return first..last
  std::uint64_t Number(std::uint64_t first, std::uint64_t last) {
    return first + engine_() % (last - first + 1);
  }
  template <typename T, std::size_t N>
  T Of(const std::array<T, N>& values) {
    return values.at(static_cast<std::size_t>(Number(0, N - 1)));
  }

 private:
  std::mt19937_64 engine_;
};

constexpr std::array kTargets = {
    Target::kUpper, Target::kLower, Target::kBoth, Target::kCommand, Target::kGroup};
constexpr std::array kSignals = {SIGTERM, SIGINT, SIGHUP};

// Signals come at many moments, so they have more runs than each limit.
constexpr std::array kDisturbances = {Disturbance::kKill,
                                      Disturbance::kKill,
                                      Disturbance::kEnd,
                                      Disturbance::kEnd,
                                      Disturbance::kStop,
                                      Disturbance::kDescriptors,
                                      Disturbance::kMemory,
                                      Disturbance::kFileSize,
                                      Disturbance::kSmallTemporary,
                                      Disturbance::kSmallFlash};

void ChooseSignal(Random& random, Plan& plan) {
  plan.target = random.Of(kTargets);
  plan.moment = static_cast<double>(random.Number(0, 1100)) / 1000;
  plan.signal = SIGSTOP;
  if (plan.disturbance == Disturbance::kKill) {
    plan.signal = SIGKILL;
  } else if (plan.disturbance == Disturbance::kEnd) {
    plan.signal = random.Of(kSignals);
  } else {
    plan.pauseMilliseconds = static_cast<unsigned>(random.Number(0, 100));
  }
}

const char* NameOf(Target target) {
  switch (target) {
    case Target::kUpper:
      return "upper process";
    case Target::kLower:
      return "lower process";
    case Target::kBoth:
      return "both processes";
    case Target::kCommand:
      return "command";
    case Target::kGroup:
      return "group of the command";
  }
  return "";
}

}  // namespace

Plan PlanOf(std::uint64_t seed, std::uint64_t index, std::size_t updates) {
  Random random(seed, index);
  Plan plan{.seed = seed,
            .index = index,
            .update = static_cast<std::size_t>(random.Number(0, updates - 1))};
  if (index % kUndisturbedEvery == 0) {
    return plan;
  }
  plan.disturbance = random.Of(kDisturbances);
  switch (plan.disturbance) {
    case Disturbance::kNone:
      break;
    case Disturbance::kKill:
    case Disturbance::kEnd:
    case Disturbance::kStop:
      ChooseSignal(random, plan);
      break;
    case Disturbance::kDescriptors:
      plan.limit = random.Number(4, 64);  // the loader takes one beside the standard ones
      break;
    case Disturbance::kMemory:
      plan.limit = random.Number(8 * kMiB, random.Number(0, 1) == 0 ? 100 * kMiB : 400 * kMiB);
      break;
    case Disturbance::kFileSize:
      plan.limit =
          random.Number(0, 1) == 0 ? random.Number(0, 20'000) : random.Number(0, 20 * kMiB);
      break;
    case Disturbance::kSmallTemporary:
      plan.spareBytes = random.Number(1, 300) * kPageBytes;
      plan.spareInodes = static_cast<unsigned>(random.Number(0, 150));
      break;
    case Disturbance::kSmallFlash:
      plan.spareBytes = random.Number(0, 20) * kMiB;
      plan.spareInodes = static_cast<unsigned>(random.Number(0, 2));
      break;
  }
  return plan;
}

std::string ClassOf(const Plan& plan) {
  switch (plan.disturbance) {
    case Disturbance::kNone:
      return "undisturbed";
    case Disturbance::kKill:
    case Disturbance::kEnd:
    case Disturbance::kStop:
      return std::string("SIG") + ::sigabbrev_np(plan.signal) + ", " + NameOf(plan.target);
    case Disturbance::kDescriptors:
      return "few descriptors";
    case Disturbance::kMemory:
      return "little memory";
    case Disturbance::kFileSize:
      return "no large files";
    case Disturbance::kSmallTemporary:
      return "small file system, temporary files";
    case Disturbance::kSmallFlash:
      return "small file system, flash file";
  }
  return "";
}

}  // namespace soak
