#include "simulator/host/Options.h"

#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <limits>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "simulator/instrument/FaultAnswer.h"

namespace orvane {

namespace {

constexpr std::uint64_t kDefaultSpiLimit = 4096;

constexpr std::string_view kHelp =
    R"(Usage: orvane-sim [OPTION]... -- COMMAND [ARG...]

Runs COMMAND inside a virtual Orvane and exits with its status.

Options (the value of an option can follow '=' as well: --log=FILE; each can be given
once, unless it can be repeated):
  --module TYPE@SLOT[,KEY=VALUE]...
                 plugs in a module; can be repeated; without any: wend@1, dax@2,
                 pyx1@4 and pyx2@5
  --fast         lets instrument time pass at once: sleeps do not wait
  --timing WHAT  how long the flash chips are busy: polls, as often as their status is read;
                 typical or longest, by the times of their data sheets: then every SPI
                 and I2C message takes its time, and the monotonic clock of programs is
                 instrument time (polls)
  --message-cost US
                 microseconds that each SPI message takes before its first bit, up to
                 1000000; not with --timing polls (20)
  --clock-step MS
                 each time a program reads its monotonic clock, the clock has advanced by
                 that many milliseconds (0); with --timing polls only
  --log FILE     writes every event to FILE, one line each, in order of time
  --trace FILE   writes the run to FILE for a viewer of Chrome trace events (JSON): console,
                 buses, chips, lines, files and D-Bus, each on a track of its own; not with
                 --timing polls
  --vcd FILE     writes the levels of every SPI and I2C bus, bit by bit, to FILE, in the form
                 of logic analysers (VCD), some 230 bytes for each byte on a bus; not with
                 --timing polls
  --state FILE   writes how the run leaves each module to FILE: its slot, done=0 or 1, what
                 else can be seen of it from outside, and what its FPGA has loaded:
                 loaded=current, what the flash holds now, other or none; and how long the
                 run took on the instrument, with --timing polls as an estimate; FILE is
                 replaced whole or not at all, as a flash file is
  --summary[=json]
                 at the end says on standard error what the run would have taken on the
                 instrument, by the steps of an update and by causes, and how that compares
                 with the least that it can take; json: for programs, in one line; not with
                 --timing polls
  --control N    descriptor N is a socket (SOCK_SEQPACKET) over which a program drives the
                 run: it asks what modules hold, holds processes, ends faults
  --bufsiz TEXT  contents of /sys/module/spidev/parameters/bufsiz, none: no such
                 file (4096); a positive number is the driver's limit as well,
                 which is 4096 otherwise
  --spi-alignment BYTES
                 the driver rounds the length of each transfer up to a multiple of BYTES
                 before it compares with its limit: a power of two up to 4096; ARM has 64,
                 arm64 128, x86 8; 1: nothing is rounded (64)
  --i2c-clients  udev lists the I2C multiplexers too, as the kernel has them: 10-0070
  --without NAME leaves out the service inventory or resources, the whole bus, or
                 the module selector; can be repeated
  --fault RULE   makes events fail, see below; can be repeated
  --file-events  makes calls on ordinary files events that are none otherwise: openat and its
                 likes, and those that change folders, or synchronise or lock a file (the
                 KIND file)
  --allow-unhit  says nothing about rules that never hit and keys without effect
  --help         shows this text and exits
  --version      shows the version and exits

TYPE: wend, dax, pyx1 or pyx2

KEY=VALUE (each once, unless it can be repeated):
  flash=FILE         contents of the flash, up to 16 MiB, then 0xFF up to its end; the
                     whole flash is saved at the end, whole or not at all: the folder
                     must be writable. FILE is locked meanwhile. Without: a blank flash
  loaded=FILE        at the end, what the FPGA has loaded is written to FILE: the whole
                     flash as it was then; an empty file when nothing is loaded
  chip=NAME          micron or macronix (micron)
  registers=STATUS:CONFIG
                     the chip's status and configuration registers at power-on, two
                     hexadecimal digits each; what it keeps of them without power at the
                     end is then shown by --state. Without: as delivered
  done=WHEN          the DONE line: auto, high, low, or after:MS, that many milliseconds
                     after each release from reset (auto)
  i2c=NAME, spi=NAME what the resource service answers; none: an empty name
  i2cdev=missing, spidev=missing
                     no nodes under /dev for them
  zynq-files=missing no control files under /sys (wend)
  expander=absent    the GPIO expander does not acknowledge (dax, pyx1, pyx2)
  held=LINE:LEVEL    this line of the expander, 0 to 15, is stuck at LEVEL, 0 or 1; can be
                     repeated
  flash-chip=absent  nothing answers on the SPI bus
  program-lost=N, erase-lost=N, register-lost=N
                     the Nth of these is acknowledged, but not done
  busy-after=N       busy for ever after the Nth program or erase
  worn-page=ADDRESS  this page does not program any more; can be repeated
  worn-sector=ADDRESS
                     this 64 KiB sector does not erase any more; can be repeated

RULE: KIND[:TEXT][#N[+]]:ACTION
  KIND    open, close, read, write, ioctl, spi, i2c, dbus, sleep, file, or any
  TEXT    a part of the event as the log shows it between KIND and " = "; without: any
          event of this kind. It begins where a word begins: "SE" does not hit "SSE",
          "done" hits "zynq_done". Of a read it is the path alone; bytes that an I2C
          message reads are shown by their number ("r +2")
  N       which of the events that match, counted from 1; N+: this one and all after it;
          without: all
  ACTION  ENOENT or any other errno: it has no effect and fails so
          error[:NAME]: likewise for dbus, with this D-Bus error
          lost: it has no effect and succeeds (write, ioctl, spi, i2c)
          data:TEXT: it is carried out, but TEXT comes back (read, spi, i2c, dbus;
          ioctl: this number); with \n \t \r \" \\ \xHH for other bytes. Refused at once
          when the event cannot carry it: GetModuleLocations whole numbers, other dbus
          calls UTF-8
          kill: it has no effect: SIGKILL for the process
          kill-session: likewise for every process of its session (see setsid) at once
          kill-all: likewise for every process of COMMAND at once, as when power fails
  The first rule that hits an event decides. At the end, a rule that never decided, and a
  key that has no effect on its module's TYPE, is reported.

Exit status: that of COMMAND, 128 + N when signal N ended it; 125 when orvane-sim itself
fails, also for a wrong command line or a file named there that cannot be used, and when
it reports a rule or a key; 126 when COMMAND cannot be executed, 127 when it is not found.
)";

[[noreturn]] void Refuse(const std::string& why) { throw std::invalid_argument(why); }

using cli::Quoted;

/// @return nothing when `text` is anything but a number in range
template <typename Number>
std::optional<Number> ParseNumber(std::string_view text, int base = 10) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return number;
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) {
      return parts;
    }
    text.remove_prefix(end + 1);
  }
}

// --- Modules ------------------------------------------------------------------------------------

std::optional<DonePolicy> ParseDone(std::string_view value) {
  constexpr std::string_view kAfter = "after:";
  constexpr std::uint32_t kMaxMilliseconds = 3'600'000;
  if (value == "auto") {
    return DonePolicy{.kind = DonePolicy::Kind::kAuto};
  }
  if (value == "high") {
    return DonePolicy{.kind = DonePolicy::Kind::kHigh};
  }
  if (value == "low") {
    return DonePolicy{.kind = DonePolicy::Kind::kLow};
  }
  if (!value.starts_with(kAfter)) {
    return std::nullopt;
  }
  const auto milliseconds = ParseNumber<std::uint32_t>(value.substr(kAfter.size()));
  if (!milliseconds || *milliseconds > kMaxMilliseconds) {
    return std::nullopt;
  }
  return DonePolicy{.kind = DonePolicy::Kind::kAfter,
                    .delay = std::chrono::milliseconds(*milliseconds)};
}

std::optional<Chip> ParseChip(std::string_view value) {
  if (value == "micron") {
    return Chip::kMicron;
  }
  if (value == "macronix") {
    return Chip::kMacronix;
  }
  return std::nullopt;
}

std::optional<ChipRegisters> ParseRegisters(std::string_view value) {
  constexpr std::size_t kDigits = 2;
  constexpr int kHex = 16;
  const auto status = ParseNumber<std::uint8_t>(value.substr(0, kDigits), kHex);
  if (!status || value.size() != 2 * kDigits + 1 || value[kDigits] != ':') {
    return std::nullopt;
  }
  const auto configuration = ParseNumber<std::uint8_t>(value.substr(kDigits + 1), kHex);
  if (!configuration) {
    return std::nullopt;
  }
  return ChipRegisters{.status = *status, .configuration = *configuration};
}

/// @return whether `value` is `word`, with `out` set to `meaning` then
template <typename T>
bool TakeWord(std::string_view value, std::string_view word, T meaning, T& out) {
  if (value != word) {
    return false;
  }
  out = meaning;
  return true;
}

template <typename T>
bool Take(std::optional<T> parsed, T& out) {
  if (!parsed) {
    return false;
  }
  out = *parsed;
  return true;
}

bool TakeName(std::string_view value, std::optional<std::string>& out) {
  out = value == "none" ? "" : std::string(value);
  return !value.empty() && IsDBusString(value);
}

bool TakeOrdinal(std::string_view value, std::uint64_t& out) {
  return Take(ParseNumber<std::uint64_t>(value), out) && out > 0;
}

/// "LINE:LEVEL"
/// @throw std::invalid_argument for a line that is held already
bool TakeHeldLine(std::string_view value, ModuleOptions& module) {
  constexpr unsigned kLines = 16;
  const std::size_t colon = value.find(':');
  const auto line = ParseNumber<unsigned>(value.substr(0, colon));
  const std::string_view level = colon == std::string_view::npos ? "" : value.substr(colon + 1);
  if (!line || *line >= kLines || (level != "0" && level != "1")) {
    return false;
  }
  const unsigned mask = 1U << *line;
  if ((module.heldLines & mask) != 0) {
    Refuse("key 'held': line " + std::to_string(*line) + " is given twice");
  }
  module.heldLines = static_cast<std::uint16_t>(module.heldLines | mask);
  module.heldLevels = static_cast<std::uint16_t>(level == "1" ? module.heldLevels | mask
                                                              : module.heldLevels & ~mask);
  return true;
}

bool TakeAddress(std::string_view value, std::vector<std::uint32_t>& out) {
  constexpr std::string_view kHexPrefix = "0x";
  const auto address = value.starts_with(kHexPrefix)
                           ? ParseNumber<std::uint32_t>(value.substr(kHexPrefix.size()), 16)
                           : ParseNumber<std::uint32_t>(value);
  if (!address || *address >= NorFlashModel::kBytes) {
    return false;
  }
  out.push_back(*address);
  return true;
}

constexpr std::string_view kOrdinal = "a number from 1 on";
constexpr std::string_view kAddress = "an address of the flash, below 0x1000000";

/// Which boards have what a key is about.
enum class Boards { kAll, kWithZynqFiles, kWithExpander };

bool AreOn(Boards boards, ModuleType type) {
  switch (boards) {
    case Boards::kAll:
      return true;
    case Boards::kWithZynqFiles:
      return type == ModuleType::kWend;
    case Boards::kWithExpander:
      return type != ModuleType::kWend;
  }
  return false;
}

struct Key {
  std::string_view name;
  std::string_view values;  // what it can be set to
  /// @return whether the value is one for this key
  bool (*take)(std::string_view value, ModuleOptions& module);
  bool canBeRepeated = false;
  Boards boards = Boards::kAll;
};

constexpr Key kKeys[] = {
    {"flash",
     "a file name",
     [](std::string_view value, ModuleOptions& module) {
       module.flashFile = value;
       return !value.empty();
     }},
    {"loaded",
     "a file name",
     [](std::string_view value, ModuleOptions& module) {
       module.loadedFile = value;
       return !value.empty();
     }},
    {"chip",
     "micron or macronix",
     [](std::string_view value, ModuleOptions& module) {
       return Take(ParseChip(value), module.chip);
     }},
    {"registers",
     "STATUS:CONFIG, two hexadecimal digits each",
     [](std::string_view value, ModuleOptions& module) {
       return Take(ParseRegisters(value), module.registers.emplace());
     }},
    {"done",
     "auto, high, low or after:MS, MS up to 3600000",
     [](std::string_view value, ModuleOptions& module) {
       return Take(ParseDone(value), module.done);
     }},
    {"i2c",
     "a name in UTF-8",
     [](std::string_view value, ModuleOptions& module) { return TakeName(value, module.i2cName); }},
    {"spi",
     "a name in UTF-8",
     [](std::string_view value, ModuleOptions& module) { return TakeName(value, module.spiName); }},
    {"i2cdev",
     "missing",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "missing", false, module.i2cNode);
     }},
    {"spidev",
     "missing",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "missing", false, module.spiNode);
     }},
    {"zynq-files",
     "missing",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "missing", false, module.controlFiles);
     },
     false,
     Boards::kWithZynqFiles},
    {"expander",
     "absent",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "absent", false, module.expander);
     },
     false,
     Boards::kWithExpander},
    {"held", "LINE:LEVEL, LINE 0 to 15, LEVEL 0 or 1", TakeHeldLine, true, Boards::kWithExpander},
    {"flash-chip",
     "absent",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "absent", true, module.defects.absent);
     }},
    {"program-lost",
     kOrdinal,
     [](std::string_view value, ModuleOptions& module) {
       return TakeOrdinal(value, module.defects.lostProgram);
     }},
    {"erase-lost",
     kOrdinal,
     [](std::string_view value, ModuleOptions& module) {
       return TakeOrdinal(value, module.defects.lostErase);
     }},
    {"register-lost",
     kOrdinal,
     [](std::string_view value, ModuleOptions& module) {
       return TakeOrdinal(value, module.defects.lostRegisterWrite);
     }},
    {"busy-after",
     kOrdinal,
     [](std::string_view value, ModuleOptions& module) {
       return TakeOrdinal(value, module.defects.busyAfter);
     }},
    {"worn-page",
     kAddress,
     [](std::string_view value, ModuleOptions& module) {
       return TakeAddress(value, module.defects.wornPages);
     },
     true},
    {"worn-sector",
     kAddress,
     [](std::string_view value, ModuleOptions& module) {
       return TakeAddress(value, module.defects.wornSectors);
     },
     true},
};

ModuleType ParseType(std::string_view word) {
  for (const auto& [type, name] : kModuleTypes) {
    if (word == name) {
      return type;
    }
  }
  Refuse(Quoted(word) + " is not a type of module (wend, dax, pyx1 or pyx2)");
}

unsigned ParseSlot(std::string_view word) {
  constexpr int kLastSlot = std::numeric_limits<int>::max();
  const auto slot = ParseNumber<std::uint32_t>(word);
  if (!slot || *slot > static_cast<std::uint32_t>(kLastSlot)) {
    Refuse(Quoted(word) + " is not a slot number");
  }
  return *slot;
}

const Key& FindKey(std::string_view name) {
  const auto* const key = std::find_if(
      std::begin(kKeys), std::end(kKeys), [&](const Key& known) { return known.name == name; });
  if (key == std::end(kKeys)) {
    Refuse("unknown key " + Quoted(name));
  }
  return *key;
}

/// @param given  the keys of this module so far
/// @return whether the key has an effect on a module of this type
bool ParseKey(std::string_view pair, ModuleOptions& module, std::set<std::string_view>& given) {
  const std::size_t equals = pair.find('=');
  const std::string_view name = pair.substr(0, equals);
  const Key& key = FindKey(name);
  if (equals == std::string_view::npos) {
    Refuse("key " + Quoted(name) + " needs a value");
  }
  const std::string_view value = pair.substr(equals + 1);
  if (!key.take(value, module)) {
    Refuse("key " + Quoted(name) + ": " + Quoted(value) + " is not " + std::string(key.values));
  }
  if (!given.insert(name).second && !key.canBeRepeated) {
    Refuse("key " + Quoted(name) + " is given twice");
  }
  return AreOn(key.boards, module.type);
}

/// @param withoutEffect  gets the keys that have none
ModuleOptions ParseModule(std::string_view text, std::vector<KeyWithoutEffect>& withoutEffect) {
  const std::vector<std::string_view> parts = Split(text, ',');
  const std::string_view place = parts[0];
  const std::size_t at = place.find('@');
  ModuleOptions module{.type = ParseType(place.substr(0, at))};
  if (at == std::string_view::npos) {
    Refuse("a slot is missing after " + Quoted(place) + ", as in " + std::string(place) + "@1");
  }
  module.slot = ParseSlot(place.substr(at + 1));
  std::set<std::string_view> given;
  for (const std::string_view part : std::span(parts).subspan(1)) {
    if (!ParseKey(part, module, given)) {
      withoutEffect.push_back({std::string(part), std::string(place)});
    }
  }
  return module;
}

void RefuseSharing(const std::vector<ModuleOptions>& modules) {
  for (std::size_t i = 0; i < modules.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (modules[i].slot == modules[j].slot) {
        throw UsageError("--module: two modules in slot " + std::to_string(modules[i].slot));
      }
      if (!modules[i].flashFile.empty() && modules[i].flashFile == modules[j].flashFile) {
        throw UsageError("--module: two modules with the flash file " +
                         Quoted(modules[i].flashFile));
      }
    }
  }
}

// --- The other options --------------------------------------------------------------------------

std::string ParseFileName(const std::string& text) {
  if (text.empty()) {
    Refuse("'' is not a file name");
  }
  return text;
}

std::chrono::milliseconds ParseClockStep(std::string_view text) {
  constexpr std::uint32_t kMaxMilliseconds = 3'600'000;
  const auto milliseconds = ParseNumber<std::uint32_t>(text);
  if (!milliseconds || *milliseconds > kMaxMilliseconds) {
    Refuse(Quoted(text) + " is not a number of milliseconds up to " +
           std::to_string(kMaxMilliseconds));
  }
  return std::chrono::milliseconds(*milliseconds);
}

Timing ParseTiming(std::string_view word) {
  for (const Timing timing : {Timing::kPolls, Timing::kTypical, Timing::kLongest}) {
    if (word == Word(timing)) {
      return timing;
    }
  }
  Refuse(Quoted(word) + " is not polls, typical or longest");
}

std::chrono::microseconds ParseMessageCost(std::string_view text) {
  constexpr std::uint32_t kMaxMicroseconds = 1'000'000;
  const auto microseconds = ParseNumber<std::uint32_t>(text);
  if (!microseconds || *microseconds > kMaxMicroseconds) {
    Refuse(Quoted(text) + " is not a number of microseconds up to " +
           std::to_string(kMaxMicroseconds));
  }
  return std::chrono::microseconds(*microseconds);
}

std::uint32_t ParseAlignment(std::string_view text) {
  constexpr std::uint32_t kMaxBytes = 4096;
  const auto bytes = ParseNumber<std::uint32_t>(text);
  if (!bytes || !std::has_single_bit(*bytes) || *bytes > kMaxBytes) {
    Refuse(Quoted(text) + " is not a power of two up to " + std::to_string(kMaxBytes));
  }
  return *bytes;
}

void ParseSummary(const std::optional<std::string>& form, SummaryForm& summary) {
  if (form && *form != "json") {
    Refuse(Quoted(*form) + " is not json");
  }
  if (summary != SummaryForm::kNone) {
    Refuse("is given twice");
  }
  summary = form ? SummaryForm::kJson : SummaryForm::kText;
}

int ParseControl(std::string_view text) {
  const auto descriptor = ParseNumber<int>(text);
  int type = 0;
  socklen_t bytes = sizeof type;
  if (!descriptor || ::getsockopt(*descriptor, SOL_SOCKET, SO_TYPE, &type, &bytes) != 0 ||
      type != SOCK_SEQPACKET) {
    Refuse(Quoted(text) + " is not a descriptor of a socket that keeps packets apart");
  }
  return *descriptor;
}

void ParseWithout(std::string_view name, Options& options) {
  const std::pair<std::string_view, bool*> parts[] = {{"inventory", &options.withInventory},
                                                      {"resources", &options.withResources},
                                                      {"bus", &options.withBus},
                                                      {"selector", &options.withSelector}};
  for (const auto& [part, present] : parts) {
    if (name == part) {
      *present = false;
      return;
    }
  }
  Refuse(Quoted(name) + " is not inventory, resources, bus or selector");
}

/// Two things that would move the same clock, a cost of messages that take no time, and times where
/// there are none.
void RefuseByTiming(const Options& options, bool hasClockStep, bool hasMessageCost) {
  if (options.timing != Timing::kPolls) {
    if (hasClockStep) {
      throw UsageError("--clock-step: works with --timing polls only");
    }
    return;
  }
  if (hasMessageCost) {
    throw UsageError("--message-cost: has no effect with --timing polls");
  }
  const std::pair<const char*, bool> timed[] = {
      {"--summary", options.summary != SummaryForm::kNone},
      {"--trace", !options.traceFile.empty()},
      {"--vcd", !options.vcdFile.empty()}};
  for (const auto& [name, isGiven] : timed) {
    if (isGiven) {
      throw UsageError(name + std::string(": works with --timing typical or longest only"));
    }
  }
}

/// `take` for an option that can be given once only.
cli::OptionSet::Take Once(cli::OptionSet::Take take) {
  return [take = std::move(take), given = false](const std::string& value) mutable {
    if (given) {
      Refuse("is given twice");
    }
    given = true;
    take(value);
  };
}

}  // namespace

std::uint64_t Options::SpiLimit() const {
  const auto number = bufsiz ? ParseNumber<std::uint64_t>(*bufsiz) : std::nullopt;
  return number && *number > 0 ? *number : kDefaultSpiLimit;
}

Options ParseOptions(std::span<const char* const> words) {
  Options options;
  cli::CommandLine line("orvane-sim", kHelp);
  cli::OptionSet& known = line.Options();
  known.AddOption("--module", [&](const std::string& value) {
    options.modules.push_back(ParseModule(value, options.keysWithoutEffect));
  });
  known.AddFlag("--fast", options.fast);
  bool hasClockStep = false;
  bool hasMessageCost = false;
  known.AddOption("--clock-step", Once([&](const std::string& value) {
                    options.clockStep = ParseClockStep(value);
                    hasClockStep = true;
                  }));
  known.AddOption("--timing",
                  Once([&](const std::string& value) { options.timing = ParseTiming(value); }));
  known.AddOption("--message-cost", Once([&](const std::string& value) {
                    options.messageCost = ParseMessageCost(value);
                    hasMessageCost = true;
                  }));
  known.AddOption("--log",
                  Once([&](const std::string& value) { options.logFile = ParseFileName(value); }));
  known.AddOption(
      "--trace", Once([&](const std::string& value) { options.traceFile = ParseFileName(value); }));
  known.AddOption("--vcd",
                  Once([&](const std::string& value) { options.vcdFile = ParseFileName(value); }));
  known.AddOption(
      "--state", Once([&](const std::string& value) { options.stateFile = ParseFileName(value); }));
  known.AddOptionalValue("--summary", [&](const std::optional<std::string>& form) {
    ParseSummary(form, options.summary);
  });
  known.AddOption("--control",
                  Once([&](const std::string& value) { options.control = ParseControl(value); }));
  known.AddOption("--bufsiz", Once([&](const std::string& value) {
                    options.bufsiz = value == "none" ? std::nullopt : std::optional(value);
                  }));
  known.AddOption("--spi-alignment", Once([&](const std::string& value) {
                    options.spiAlignment = ParseAlignment(value);
                  }));
  known.AddFlag("--i2c-clients", options.i2cClients);
  known.AddOption("--without", [&](const std::string& value) { ParseWithout(value, options); });
  known.AddOption("--fault", [&](const std::string& value) {
    options.faults.push_back(FaultRule::Parse(value));
  });
  known.AddFlag("--file-events", options.fileEvents);
  known.AddFlag("--allow-unhit", options.allowUnhit);
  line.AddRest("COMMAND", options.command);

  options.answer = line.Read(words);
  if (options.answer) {
    return options;
  }
  if (options.modules.empty()) {
    options.modules = {{.type = ModuleType::kWend, .slot = 1},
                       {.type = ModuleType::kDax, .slot = 2},
                       {.type = ModuleType::kPyx1, .slot = 4},
                       {.type = ModuleType::kPyx2, .slot = 5}};
  }
  for (ModuleOptions& module : options.modules) {
    module.timing = options.timing;
  }
  RefuseSharing(options.modules);
  RefuseByTiming(options, hasClockStep, hasMessageCost);
  return options;
}

}  // namespace orvane
