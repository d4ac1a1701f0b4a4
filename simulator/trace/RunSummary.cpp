#include "simulator/trace/RunSummary.h"

#include <algorithm>

#include "simulator/timing/WireTime.h"
#include "simulator/trace/CommandName.h"

namespace orvane {

namespace {

// What a program or an erase needs on the wire, in bytes.
constexpr std::uint64_t kWriteEnable = 1;
constexpr std::uint64_t kAskStatus = 2;  // the command, and one answer: ready
constexpr std::uint64_t kOpcode = 1;
constexpr std::uint64_t kAddress = 3;
constexpr std::uint64_t kPage = 256;

constexpr std::uint64_t kProgramBits =
    (kWriteEnable + kOpcode + kAddress + kPage + kAskStatus) * kBitsPerSpiByte;
constexpr std::uint64_t kEraseBits =
    (kWriteEnable + kOpcode + kAddress + kAskStatus) * kBitsPerSpiByte;
constexpr std::uint64_t kChipEraseBits = (kWriteEnable + kOpcode + kAskStatus) * kBitsPerSpiByte;

/// The names of all chip selects, as the log joins them.
std::string NameOf(const ObservedSpi& message) {
  if (message.selects.empty()) {
    return "failed";
  }
  std::string name;
  for (const ObservedSelect& select : message.selects) {
    name.append(name.empty() ? "" : " / ").append(CommandName(select.command));
  }
  return name;
}

std::chrono::nanoseconds WireLimit(const RunFigures& figures) {
  const auto time = [&](std::uint64_t times, std::uint64_t bits) {
    return WireTime(bits, figures.hertz) * static_cast<std::int64_t>(times);
  };
  return time(figures.pages, kProgramBits) + time(figures.sectors, kEraseBits) +
         time(figures.subsectors, kEraseBits) + time(figures.chipErases, kChipEraseBits);
}

}  // namespace

void RunSummary::OnStart(std::span<const ObservedModule> modules,
                         std::span<const std::string> /*chassisI2c*/) {
  for (const ObservedModule& module : modules) {
    chips_[module.slot] = module.chipTimes;
  }
}

/// Adds the time since this was called last to the step under way.
void RunSummary::Account() {
  const TimeTotals& now = totals_();
  waiting_.Add(now.Since(seen_));
  seen_ = now;
  const std::optional<UpdateStep> step = steps_.Current();
  if (!step) {
    return;
  }
  if (std::find(order_.begin(), order_.end(), *step) == order_.end()) {
    order_.push_back(*step);
  }
  times_.at(static_cast<std::size_t>(*step)).Add(waiting_);
  waiting_ = TimeTotals();
}

CommandCount& RunSummary::CountOf(std::string name) {
  const auto [place, isNew] = commandPlaces_.emplace(std::move(name), figures_.commands.size());
  if (isNew) {
    figures_.commands.push_back({place->first, 0, 0});
  }
  return figures_.commands[place->second];
}

void RunSummary::OnSpi(const ObservedSpi& message) {
  CommandCount& count = CountOf(NameOf(message));
  ++count.messages;
  for (const ObservedSelect& select : message.selects) {
    for (const ClockedBytes& clocked : select.clocked) {
      count.bytes += clocked.bytes;
      bytesAt_[clocked.hertz] += clocked.bytes;
    }
  }
  steps_.OnSpi(message);
  Account();
}

void RunSummary::OnI2c(const ObservedI2c& transfer) {
  ++figures_.i2cTransfers;
  for (const ObservedI2cMessage& message : transfer.messages) {
    figures_.i2cBytes += 1 + message.bytes.size();
  }
  steps_.OnI2c(transfer);
  Account();
}

void RunSummary::OnAccess(const ObservedAccess& access) {
  ++(access.writes ? figures_.fileWrites : figures_.fileReads);
  steps_.OnAccess(access);
  Account();
}

void RunSummary::OnDBus(std::string_view call, std::chrono::nanoseconds at, Outcome outcome) {
  ++figures_.dbusCalls;
  steps_.OnDBus(call, at, outcome);
  Account();
}

void RunSummary::OnSleep(Period /*period*/) { Account(); }

void RunSummary::OnUnseen(Period /*period*/) { Account(); }

void RunSummary::OnOther(std::string_view text, std::chrono::nanoseconds at) {
  steps_.OnOther(text, at);
}

void RunSummary::OnChipBusy(unsigned slot,
                            ChipWork work,
                            std::uint32_t /*address*/,
                            std::chrono::nanoseconds /*at*/) {
  switch (work) {
    case ChipWork::kPageProgram:
      ++figures_.pages;
      break;
    case ChipWork::kSectorErase:
      ++figures_.sectors;
      break;
    case ChipWork::kSubsectorErase:
      ++figures_.subsectors;
      break;
    case ChipWork::kChipErase:
      ++figures_.chipErases;
      break;
    case ChipWork::kRegisterWrite:
    case ChipWork::kNone:
      return;
  }
  work_ += chips_.at(slot).Of(work);
}

void RunSummary::OnLine(unsigned slot, LineLevel level, std::chrono::nanoseconds at) {
  steps_.OnLine(slot, level, at);
}

void RunSummary::OnEnd(std::chrono::nanoseconds at) {
  steps_.OnEnd(at);
  Account();
  figures_.times = seen_;
  if (steps_.IsUpdate()) {
    for (const UpdateStep step : order_) {
      figures_.steps.push_back(
          {std::string(StepName(step)), times_.at(static_cast<std::size_t>(step))});
    }
  } else {
    figures_.steps.push_back({std::string(kWholeRun), seen_});
  }
  const auto most =
      std::max_element(bytesAt_.begin(), bytesAt_.end(), [](const auto& a, const auto& b) {
        return a.second < b.second;
      });
  if (most != bytesAt_.end()) {
    figures_.hertz = most->first;
    figures_.limit = work_ + WireLimit(figures_);
  }
}

}  // namespace orvane
