#include "simulator/host/Options.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <limits>
#include <string_view>

namespace orvane {

namespace {

constexpr std::uint64_t kDefaultSpiLimit = 4096;

constexpr std::string_view kHelp =
    R"(Usage: orvane-sim [OPTION]... -- COMMAND [ARG...]

Runs COMMAND inside a virtual Orvane and exits with its status.

Options:
  --module TYPE@SLOT[,KEY=VALUE]...
                 plugs in a module; without any: wend@1, dax@2, pyx1@4 and
                 pyx2@5
  --fast         lets instrument time pass at once: sleeps do not wait
  --clock-step MS
                 at each look of a program at its monotonic clock, that many milliseconds
                 have passed on it (0)
  --log FILE     writes every event to FILE, one line each, in true order
  --state FILE   writes how the run leaves each module to FILE: its slot, done=0 or 1 and
                 what else its outside shows
  --bufsiz TEXT  contents of /sys/module/spidev/parameters/bufsiz, none: no such
                 file (4096); a positive number is the driver's limit as well,
                 which is 4096 otherwise
  --without NAME leaves out the service inventory or resources, the whole bus, or
                 the module selector
  --fault RULE   makes events fail, see below
  --help         shows this text and exits

TYPE: wend, dax, pyx1 or pyx2

KEY=VALUE:
  flash=FILE         contents of the flash, up to 16 MiB and 0xFF behind them; written
                     back whole at the end. Without: a blank flash
  chip=NAME          micron or macronix (micron)
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
  KIND    open, close, read, write, ioctl, spi, i2c, dbus, sleep, or any
  TEXT    a part of the event as the log shows it between KIND and " = "; without: any
          event of this kind. It begins where a word begins: "SE" does not hit "SSE",
          "done" hits "zynq_done". Of a read it is the path alone; bytes that an I2C
          message reads are shown by their number ("r +2")
  N       which of the events that match, counted from 1; N+: and all after it;
          without: all
  ACTION  ENOENT or any other errno: it has no effect and fails so
          error[:NAME]: likewise for dbus, with this D-Bus error
          lost: it has no effect and succeeds (write, ioctl, spi, i2c)
          data:TEXT: it takes its course, but TEXT comes back (read, spi, i2c, dbus;
          ioctl: this number); with \n \t \r \" \\ \xHH for other bytes
          kill: it has no effect: SIGKILL for the program
  The first rule that hits an event decides.

Exit status: that of COMMAND, 128 + N when signal N ended it; 2 for a wrong command line
or an unusable file named there; 125 when the instrument itself fails; 126 when COMMAND
cannot be executed, 127 when it is not found.
)";

[[noreturn]] void Refuse(const std::string& why) { throw UsageError(why); }

std::string Quoted(std::string_view text) { return std::string("'").append(text).append("'"); }

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
  return !value.empty();
}

bool TakeOrdinal(std::string_view value, std::uint64_t& out) {
  return Take(ParseNumber<std::uint64_t>(value), out) && out > 0;
}

/// "LINE:LEVEL"
bool TakeHeldLine(std::string_view value, ModuleOptions& module) {
  constexpr unsigned kLines = 16;
  const std::size_t colon = value.find(':');
  const auto line = ParseNumber<unsigned>(value.substr(0, colon));
  const std::string_view level = colon == std::string_view::npos ? "" : value.substr(colon + 1);
  if (!line || *line >= kLines || (level != "0" && level != "1")) {
    return false;
  }
  const unsigned mask = 1U << *line;
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

struct Key {
  std::string_view name;
  /// @return whether the value is one for this key
  bool (*take)(std::string_view value, ModuleOptions& module);
};

constexpr Key kKeys[] = {
    {"flash",
     [](std::string_view value, ModuleOptions& module) {
       module.flashFile = value;
       return !value.empty();
     }},
    {"chip",
     [](std::string_view value, ModuleOptions& module) {
       return Take(ParseChip(value), module.chip);
     }},
    {"done",
     [](std::string_view value, ModuleOptions& module) {
       return Take(ParseDone(value), module.done);
     }},
    {"i2c",
     [](std::string_view value, ModuleOptions& module) { return TakeName(value, module.i2cName); }},
    {"spi",
     [](std::string_view value, ModuleOptions& module) { return TakeName(value, module.spiName); }},
    {"i2cdev",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "missing", false, module.i2cNode);
     }},
    {"spidev",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "missing", false, module.spiNode);
     }},
    {"zynq-files",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "missing", false, module.controlFiles);
     }},
    {"expander",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "absent", false, module.expander);
     }},
    {"held", TakeHeldLine},
    {"flash-chip",
     [](std::string_view value, ModuleOptions& module) {
       return TakeWord(value, "absent", true, module.defects.absent);
     }},
    {"program-lost",
     [](std::string_view value, ModuleOptions& module) {
       return TakeOrdinal(value, module.defects.lostProgram);
     }},
    {"erase-lost",
     [](std::string_view value, ModuleOptions& module) {
       return TakeOrdinal(value, module.defects.lostErase);
     }},
    {"register-lost",
     [](std::string_view value, ModuleOptions& module) {
       return TakeOrdinal(value, module.defects.lostRegisterWrite);
     }},
    {"busy-after",
     [](std::string_view value, ModuleOptions& module) {
       return TakeOrdinal(value, module.defects.busyAfter);
     }},
    {"worn-page",
     [](std::string_view value, ModuleOptions& module) {
       return TakeAddress(value, module.defects.wornPages);
     }},
    {"worn-sector",
     [](std::string_view value, ModuleOptions& module) {
       return TakeAddress(value, module.defects.wornSectors);
     }},
};

ModuleType ParseType(std::string_view word) {
  constexpr std::pair<std::string_view, ModuleType> kTypes[] = {{"wend", ModuleType::kWend},
                                                                {"dax", ModuleType::kDax},
                                                                {"pyx1", ModuleType::kPyx1},
                                                                {"pyx2", ModuleType::kPyx2}};
  for (const auto& [name, type] : kTypes) {
    if (word == name) {
      return type;
    }
  }
  Refuse(Quoted(word) + " is no type of module (wend, dax, pyx1 or pyx2)");
}

ModuleOptions ParseModule(std::string_view text) {
  const std::vector<std::string_view> parts = Split(text, ',');
  const std::size_t at = parts[0].find('@');
  ModuleOptions module{.type = ParseType(parts[0].substr(0, at))};
  const auto slot = at == std::string_view::npos
                        ? std::nullopt
                        : ParseNumber<std::uint32_t>(parts[0].substr(at + 1));
  if (!slot || *slot > static_cast<std::uint32_t>(std::numeric_limits<int>::max())) {
    Refuse("--module " + Quoted(text) + ": TYPE must be followed by @ and a slot number");
  }
  module.slot = *slot;
  for (const std::string_view part : std::span(parts).subspan(1)) {
    const std::size_t equals = part.find('=');
    const std::string_view name = part.substr(0, equals);
    const auto* const key = std::find_if(
        std::begin(kKeys), std::end(kKeys), [&](const Key& known) { return known.name == name; });
    if (equals == std::string_view::npos || key == std::end(kKeys)) {
      Refuse("--module " + Quoted(text) + ": " + Quoted(part) + " is no KEY=VALUE known here");
    }
    if (!key->take(part.substr(equals + 1), module)) {
      Refuse("--module " + Quoted(text) + ": " + Quoted(part) + " has no such value");
    }
  }
  return module;
}

void RefuseSharing(const std::vector<ModuleOptions>& modules) {
  for (std::size_t i = 0; i < modules.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (modules[i].slot == modules[j].slot) {
        Refuse("two modules in slot " + std::to_string(modules[i].slot));
      }
      if (!modules[i].flashFile.empty() && modules[i].flashFile == modules[j].flashFile) {
        Refuse("two modules with the flash file " + Quoted(modules[i].flashFile));
      }
    }
  }
}

// --- The other options --------------------------------------------------------------------------

FaultRule ParseFault(const char* text) {
  try {
    return FaultRule::Parse(text);
  } catch (const std::invalid_argument& error) {
    Refuse("--fault " + Quoted(text) + ": " + error.what());
  }
}

void ParseWithout(std::string_view name, Options& options) {
  if (name == "bus") {
    options.withBus = false;
  } else if (name == "inventory") {
    options.withInventory = false;
  } else if (name == "resources") {
    options.withResources = false;
  } else if (name == "selector") {
    options.withSelector = false;
  } else {
    Refuse("--without " + Quoted(name) + ": not inventory, resources, bus or selector");
  }
}

/// The words, taken one by one from the front.
class Words {
 public:
  explicit Words(std::span<const char* const> words) : words_(words) {}

  bool AtEnd() const { return next_ == words_.size(); }
  const char* Next() { return words_[next_++]; }
  const char* ValueOf(std::string_view option) {
    if (AtEnd()) {
      Refuse(std::string(option) + " needs a value");
    }
    return Next();
  }
  std::vector<std::string> Rest() const {
    const auto rest = words_.subspan(next_);
    return {rest.begin(), rest.end()};
  }

 private:
  std::span<const char* const> words_;
  std::size_t next_ = 0;
};

std::chrono::milliseconds ParseClockStep(std::string_view text) {
  constexpr std::uint32_t kMaxMilliseconds = 3'600'000;
  const auto milliseconds = ParseNumber<std::uint32_t>(text);
  if (!milliseconds || *milliseconds > kMaxMilliseconds) {
    Refuse("--clock-step " + Quoted(text) + ": not a number of milliseconds up to an hour");
  }
  return std::chrono::milliseconds(*milliseconds);
}

std::string FileName(std::string_view option, Words& words) {
  std::string name = words.ValueOf(option);
  if (name.empty()) {
    Refuse(std::string(option) + " needs a file name");
  }
  return name;
}

void ParseOption(std::string_view option, Words& words, Options& options) {
  if (option == "--fast") {
    options.fast = true;
  } else if (option == "--clock-step") {
    options.clockStep = ParseClockStep(words.ValueOf(option));
  } else if (option == "--help") {
    options.help = true;
  } else if (option == "--module") {
    options.modules.push_back(ParseModule(words.ValueOf(option)));
  } else if (option == "--log") {
    options.logFile = FileName(option, words);
  } else if (option == "--state") {
    options.stateFile = FileName(option, words);
  } else if (option == "--fault") {
    options.faults.push_back(ParseFault(words.ValueOf(option)));
  } else if (option == "--bufsiz") {
    const std::string_view text = words.ValueOf(option);
    options.bufsiz = text == "none" ? std::nullopt : std::optional<std::string>(text);
  } else if (option == "--without") {
    ParseWithout(words.ValueOf(option), options);
  } else {
    Refuse(Quoted(option) + " is no option known here");
  }
}

}  // namespace

std::uint64_t Options::SpiLimit() const {
  const auto number = bufsiz ? ParseNumber<std::uint64_t>(*bufsiz) : std::nullopt;
  return number && *number > 0 ? *number : kDefaultSpiLimit;
}

Options ParseOptions(std::span<const char* const> words) {
  Options options;
  Words rest(words);
  while (!rest.AtEnd()) {
    const std::string_view word = rest.Next();
    if (word == "--") {
      options.command = rest.Rest();
      break;
    }
    ParseOption(word, rest, options);
    if (options.help) {
      return options;
    }
  }
  if (options.command.empty()) {
    Refuse("no COMMAND, which goes behind --");
  }
  if (options.modules.empty()) {
    options.modules = {{.type = ModuleType::kWend, .slot = 1},
                       {.type = ModuleType::kDax, .slot = 2},
                       {.type = ModuleType::kPyx1, .slot = 4},
                       {.type = ModuleType::kPyx2, .slot = 5}};
  }
  RefuseSharing(options.modules);
  return options;
}

std::string_view HelpText() { return kHelp; }

}  // namespace orvane
