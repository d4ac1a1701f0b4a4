#include "tests/unit/simulator/chips/FlashSession.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>

#include "simulator/instrument/Escape.h"
#include "simulator/instrument/SpiDecoder.h"

namespace orvane {
namespace {

using namespace std::chrono_literals;

using Bytes = std::vector<std::uint8_t>;
using Steps = std::vector<FlashStep>;

// Integers.

/// `from` to `to`, both included, whatever the size; shrinks towards `from`.
template <typename T>
rc::Gen<T> Between(T from, T to) {
  const auto more = rc::gen::inRange(0, static_cast<int>(to - from) + 1);
  return rc::gen::map(rc::gen::resize(rc::kNominalSize, more),
                      [from](int above) { return static_cast<T>(from + static_cast<T>(above)); });
}

rc::Gen<std::uint8_t> AnyByte() { return Between<std::uint8_t>(0x00, 0xFF); }

template <typename T>
rc::Gen<T> OneOf(const std::vector<T>& values) {
  return rc::gen::map(Between<std::size_t>(0, values.size() - 1),
                      [values](std::size_t index) { return values[index]; });
}

// Commands.

FlashStep Sent(Bytes bytes) { return {.sent = std::move(bytes)}; }

FlashStep Addressed(std::uint8_t opcode, std::size_t address) {
  return Sent({opcode,
               static_cast<std::uint8_t>(address >> 16U),
               static_cast<std::uint8_t>(address >> 8U),
               static_cast<std::uint8_t>(address)});
}

/// A page program whose data differ from byte to byte, and from one round in the page to the next.
FlashStep PageProgram(std::size_t address, std::size_t length, std::uint8_t first) {
  FlashStep step = Addressed(0x02, address);
  for (std::size_t i = 0; i < length; ++i) {
    step.sent.push_back(static_cast<std::uint8_t>(first + 7 * i + 31 * (i / 256)));
  }
  return step;
}

rc::Gen<FlashStep> Programs() {
  const auto lengths = rc::gen::weightedOneOf<int>(
      {{6, Between(1, 9)}, {1, rc::gen::just(0)}, {2, Between(250, 260)}, {1, Between(508, 516)}});
  return rc::gen::apply(
      PageProgram, FlashAddresses(), rc::gen::cast<std::size_t>(lengths), AnyByte());
}

rc::Gen<FlashStep> UnitErases() {
  return rc::gen::apply(Addressed, OneOf<std::uint8_t>({0x20, 0xD8}), FlashAddresses());
}

rc::Gen<FlashStep> ChipErases() {
  return rc::gen::map(OneOf<std::uint8_t>({0x60, 0xC7}),
                      [](std::uint8_t opcode) { return Sent({opcode}); });
}

rc::Gen<FlashStep> RegisterWrites() {
  const auto one = [](std::uint8_t status) { return Sent({0x01, status}); };
  const auto two = [](std::uint8_t status, std::uint8_t configuration) {
    return Sent({0x01, status, configuration});
  };
  return rc::gen::weightedOneOf<FlashStep>({{2, rc::gen::just(one(0x00))},
                                            {2, rc::gen::map(AnyByte(), one)},
                                            {2, rc::gen::apply(two, AnyByte(), AnyByte())}});
}

rc::Gen<FlashStep> Reads() {
  const auto read = [](FlashStep step, std::size_t received) {
    step.received = received;
    return step;
  };
  const auto lengths = rc::gen::weightedOneOf<std::size_t>(
      {{3, Between<std::size_t>(0, 4)}, {1, Between<std::size_t>(255, 600)}});
  const auto registers = rc::gen::map(OneOf<std::uint8_t>({0x05, 0x15, 0x9F}),
                                      [](std::uint8_t opcode) { return Sent({opcode}); });
  const auto array = rc::gen::apply(Addressed, rc::gen::just<std::uint8_t>(0x03), FlashAddresses());
  return rc::gen::weightedOneOf<FlashStep>(
      {{2, rc::gen::apply(read, registers, Between<std::size_t>(0, 5))},
       {2, rc::gen::apply(read, array, lengths)}});
}

rc::Gen<FlashStep> LatchCommands() {
  return rc::gen::map(OneOf<std::uint8_t>({0x06, 0x04}),
                      [](std::uint8_t opcode) { return Sent({opcode}); });
}

rc::Gen<FlashStep> Work() {
  return rc::gen::weightedOneOf<FlashStep>(
      {{8, Programs()}, {4, UnitErases()}, {1, ChipErases()}, {4, RegisterWrites()}});
}

/// A command whose chip select rises too early or too late.
rc::Gen<FlashStep> Malformed() {
  const auto cut = [](FlashStep step, std::size_t length) {
    step.sent.resize(std::min(step.sent.size(), length));
    return step;
  };
  const auto prolong = [](FlashStep step, std::size_t more, std::size_t received) {
    step.sent.resize(step.sent.size() + more, 0x3C);
    step.received = received;
    return step;
  };
  const auto whole =
      rc::gen::weightedOneOf<FlashStep>({{4, Work()}, {1, LatchCommands()}, {1, Reads()}});
  return rc::gen::oneOf(
      rc::gen::apply(cut, whole, Between<std::size_t>(1, 5)),
      rc::gen::apply(prolong, whole, Between<std::size_t>(0, 2), Between<std::size_t>(0, 3)));
}

rc::Gen<FlashStep> Unknown() {
  return rc::gen::map(rc::gen::container<Bytes>(3, AnyByte()), [](Bytes bytes) {
    return FlashStep{.sent = std::move(bytes), .received = 2};
  });
}

rc::Gen<FlashStep> Waits() {
  return rc::gen::map(OneOf<std::chrono::nanoseconds>(
                          {1ns, 4999999ns, 5ms, 20ms, 39999999ns, 40ms, 999999999ns, 1000ms, 1h}),
                      [](std::chrono::nanoseconds wait) { return FlashStep{.wait = wait}; });
}

// Pieces of a session.

rc::Gen<FlashStep> AnyStep() {
  return rc::gen::weightedOneOf<FlashStep>({{4, Reads()},
                                            {2, Work()},
                                            {2, LatchCommands()},
                                            {2, Malformed()},
                                            {1, Unknown()},
                                            {2, Waits()}});
}

rc::Gen<Steps> Strays() {
  return rc::gen::map(AnyStep(), [](FlashStep step) { return Steps{std::move(step)}; });
}

/// Write enable and a program, an erase or a register write; then perhaps a command that is too
/// early; then status reads and time, enough for the work to end or not.
rc::Gen<Steps> Operations() {
  const auto waits = rc::gen::weightedOneOf<std::chrono::nanoseconds>(
      {{4, rc::gen::just<std::chrono::nanoseconds>(40ms)},
       {2,
        OneOf<std::chrono::nanoseconds>({39999999ns, 1ns, 4999999ns, 5ms, 999999999ns, 1000ms})}});
  const auto early = rc::gen::oneOf(rc::gen::just(Steps{}), Strays());
  return rc::gen::apply(
      [](const FlashStep& work, Steps steps, std::size_t polls, std::chrono::nanoseconds wait) {
        steps.insert(steps.begin(), {Sent({0x06}), work});
        steps.push_back({.sent = {0x05}, .received = polls});
        steps.push_back({.wait = wait});
        return steps;
      },
      rc::gen::weightedOneOf<FlashStep>({{8, Work()}, {1, Malformed()}}),
      early,
      rc::gen::weightedOneOf<std::size_t>(
          {{4, rc::gen::just<std::size_t>(4)}, {1, Between<std::size_t>(0, 3)}}),
      waits);
}

rc::Gen<Steps> StepLists() {
  const auto piece = rc::gen::resize(
      rc::kNominalSize, rc::gen::weightedOneOf<Steps>({{1, Strays()}, {1, Operations()}}));
  const auto pieces = rc::gen::scale(0.25, rc::gen::container<std::vector<Steps>>(piece));
  const auto flat = rc::gen::map(pieces, [](const std::vector<Steps>& lists) {
    Steps steps;
    for (const Steps& list : lists) {
      steps.insert(steps.end(), list.begin(), list.end());
    }
    return steps;
  });
  return rc::gen::shrink(flat, [](const Steps& steps) { return rc::shrink::removeChunks(steps); });
}

rc::Gen<NorFlashFaults> Faults() {
  using Addresses = std::vector<std::uint32_t>;
  // Mostly small enough that the session reaches it.
  const auto nth = [] { return rc::gen::cast<std::uint64_t>(Between(0, 5)); };
  const auto worn = [] {
    const auto some =
        rc::gen::container<Addresses>(3, rc::gen::cast<std::uint32_t>(FlashAddresses()));
    return rc::gen::weightedOneOf<Addresses>({{1, rc::gen::just(Addresses{})}, {1, some}});
  };
  const auto absent = rc::gen::map(Between(0, 9), [](int chance) { return chance == 9; });
  const auto stuck = rc::gen::map(Between(0, 12), [](int late) { return late < 6 ? 0 : late - 5; });
  return rc::gen::build<NorFlashFaults>(
      rc::gen::set(&NorFlashFaults::absent, absent),
      rc::gen::set(&NorFlashFaults::dropProgram, nth()),
      rc::gen::set(&NorFlashFaults::dropErase, nth()),
      rc::gen::set(&NorFlashFaults::dropRegisterWrite, nth()),
      rc::gen::set(&NorFlashFaults::stayBusyAfter, rc::gen::cast<std::uint64_t>(stuck)),
      rc::gen::set(&NorFlashFaults::wornPages, worn()),
      rc::gen::set(&NorFlashFaults::wornSectors, worn()));
}

rc::Gen<FlashSession> Sessions(const rc::Gen<NorFlashFaults>& faults) {
  const auto status = rc::gen::oneOf(rc::gen::just<std::uint8_t>(0x00), AnyByte());
  const auto configuration = rc::gen::oneOf(OneOf<std::uint8_t>({0x00, 0x08}), AnyByte());
  return rc::gen::build<FlashSession>(
      rc::gen::set(&FlashSession::chip, OneOf<Chip>({Chip::kMicron, Chip::kMacronix})),
      rc::gen::set(&FlashSession::written, rc::gen::arbitrary<bool>()),
      rc::gen::set(&FlashSession::status, status),
      rc::gen::set(&FlashSession::configuration, configuration),
      rc::gen::set(&FlashSession::faults, faults),
      rc::gen::set(&FlashSession::steps, StepLists()));
}

Bytes Pattern() {
  Bytes bytes(kFlashBytes);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(i + 3 * (i >> 8U) + 5 * (i >> 16U));
  }
  return bytes;
}

// Texts.

std::string Hex(const Bytes& bytes) {
  return HexBytes({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void ShowFault(std::ostream& out, std::string_view name, std::uint64_t nth) {
  if (nth > 0) {
    out << ' ' << name << '=' << nth;
  }
}

void ShowWorn(std::ostream& out, std::string_view name, const std::vector<std::uint32_t>& worn) {
  for (const std::uint32_t address : worn) {
    out << ' ' << name << '=' << HexNumber(address, 6);
  }
}

}  // namespace

std::vector<std::uint8_t> FlashStep::Mosi() const {
  Bytes mosi = sent;
  mosi.resize(sent.size() + received, 0x00);
  return mosi;
}

const std::vector<std::uint8_t>& FlashSession::Contents() const {
  static const Bytes blank(kFlashBytes, 0xFF);
  static const Bytes pattern = Pattern();
  return written ? pattern : blank;
}

const std::vector<std::size_t>& FlashBorders() {
  static const std::vector<std::size_t> borders = [] {
    std::vector<std::size_t> found = {0x000000, 0x000100, 0x001000};
    for (std::size_t bytes = 0x010000; bytes < kFlashBytes; bytes *= 2) {
      found.push_back(bytes);
      found.push_back(kFlashBytes - bytes);
    }
    return found;
  }();
  return borders;
}

rc::Gen<std::size_t> FlashAddresses() {
  const auto close = rc::gen::apply(
      [](std::size_t border, std::size_t away, bool below) {
        return (border + (below ? kFlashBytes - away : away)) % kFlashBytes;
      },
      OneOf(FlashBorders()),
      Between<std::size_t>(0, 4),
      rc::gen::arbitrary<bool>());
  return rc::gen::weightedOneOf<std::size_t>({{3, Between<std::size_t>(0, 4)},
                                              {2, Between(kFlashBytes - 4, kFlashBytes - 1)},
                                              {9, close},
                                              {1, Between<std::size_t>(0, kFlashBytes - 1)}});
}

rc::Gen<FlashSession> FlashSessions() { return Sessions(rc::gen::just(NorFlashFaults())); }

rc::Gen<FlashSession> FaultyFlashSessions() { return Sessions(Faults()); }

void showValue(const FlashStep& step, std::ostream& out) {
  constexpr std::size_t kShownBytes = 16;
  if (step.sent.empty()) {
    constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
    const std::int64_t wait = step.wait.count();
    const bool whole = wait % kNanosecondsPerMillisecond == 0;
    out << "sleep " << (whole ? wait / kNanosecondsPerMillisecond : wait)
        << (whole ? " ms" : " ns");
    return;
  }
  out << DescribeSpi(step.sent, step.received).command;
  if (step.sent[0] == 0x02 && step.sent.size() > 4) {
    const std::size_t shown = std::min(step.sent.size() - 4, kShownBytes);
    out << ": " << Hex({step.sent.begin() + 4, step.sent.begin() + 4 + static_cast<int>(shown)})
        << (step.sent.size() > 4 + shown ? " ..." : "");
  } else if (step.sent[0] != 0x03 && step.received > 0) {
    out << " +" << step.received;
  }
}

void showValue(const FlashSession& session, std::ostream& out) {
  out << (session.chip == Chip::kMacronix ? "macronix" : "micron")
      << (session.written ? " written" : " blank") << " status=" << HexNumber(session.status, 2)
      << " configuration=" << HexNumber(session.configuration, 2);
  const NorFlashFaults& faults = session.faults;
  out << (faults.absent ? " absent" : "");
  ShowFault(out, "program-lost", faults.dropProgram);
  ShowFault(out, "erase-lost", faults.dropErase);
  ShowFault(out, "register-lost", faults.dropRegisterWrite);
  ShowFault(out, "busy-after", faults.stayBusyAfter);
  ShowWorn(out, "worn-page", faults.wornPages);
  ShowWorn(out, "worn-sector", faults.wornSectors);
  for (const FlashStep& step : session.steps) {
    out << "\n  ";
    showValue(step, out);
  }
}

}  // namespace orvane
