#include "companion/report/Options.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "cli/CommandLine.h"

namespace companion {

namespace {

using cli::Quoted;

constexpr std::string_view kHelp =
    R"(Usage: tarnwickctl image  FILE [--target TARGET] [--flash DUMP] [--json]
       tarnwickctl read   TARGET MODULE FILE [--length BYTES] [--json]
       tarnwickctl verify TARGET MODULE IMAGE [--json]
       tarnwickctl update TARGET MODULE IMAGE [--sha256 HEX] [--attempts N]
                          [--timeout SECONDS] [--restart] [--force] [--program PATH]
                          [--json]
       read, verify, update: [--state DIR] [--wait SECONDS]

image    tells what is in an image file and what would happen to it; touches no device
read     stores what the flash of a module holds in FILE, whole or not at all
verify   compares the flash of a module with an image
update   has tarnwick write an image, until the flash is proven to hold it, and takes it
         into use

TARGET: wend, dax, pyx1 or pyx2. MODULE: the number of its slot.

Options:
  --target TARGET    the type that the verdict of image is about; without: any
  --flash DUMP       what tarnwick would answer over the flash in this file
  --length BYTES     how much to read, from address 0 (16777216)
  --sha256 HEX       what the file must have; nothing is touched when it has not
  --attempts N       how often to write, and how often to take into use (3)
  --timeout SECONDS  after which a run of tarnwick is ended (from the size of the image)
  --restart          resets the FPGA also where its image seems to be in use
  --force            takes an image of another format
  --program PATH     tarnwick (the one beside tarnwickctl, or that in PATH)
  --state DIR        folder of the lock and the marks (/var/lib/tarnwick)
  --wait SECONDS     how long to wait while another holds the lock (0)
  --json             one JSON object on standard output
  --help             shows this text and exits
  --version          shows the version and exits

Exit status:
  0  fit; read; equal; flash proven and in use (dax: at its next power-on)
  1  unfit; differs; not proven
  2  refused: words, file, image, own folder, slot; the module was not touched
  3  flash proven, but FPGA or endpoint does not come up: switch the module off and on
  4  locked by another
  5  stopped by a signal; the last line tells what the flash is known to hold
  6  the module cannot be reached or read for certain; its flash was not changed
)";

[[noreturn]] void Refuse(const std::string& why) { throw std::invalid_argument(why); }

/// @return the number that `word` is, and nothing else: no sign, no blank, no fraction
template <typename Number>
Number TakeNumber(const std::string& word, Number least, Number most) {
  Number number = 0;
  const char* const end = word.data() + word.size();
  const auto [rest, error] = std::from_chars(word.data(), end, number);
  if (word.empty() || error != std::errc() || rest != end || number < least || number > most) {
    Refuse(Quoted(word) + " is no whole number from " + std::to_string(least) + " to " +
           std::to_string(most));
  }
  return number;
}

std::string TakeTarget(const std::string& word) {
  constexpr std::string_view kTargets[] = {"wend", "dax", "pyx1", "pyx2"};
  if (std::find(std::begin(kTargets), std::end(kTargets), word) == std::end(kTargets)) {
    Refuse(Quoted(word) + " is not a type of module (wend, dax, pyx1 or pyx2)");
  }
  return word;
}

std::string TakePath(const std::string& word) {
  if (word.empty()) {
    Refuse("the name is empty");
  }
  return word;
}

std::string TakeSha256(const std::string& word) {
  constexpr std::size_t kDigits = 64;
  if (word.size() != kDigits ||
      word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    Refuse(Quoted(word) + " is not 64 hexadecimal digits");
  }
  return word;
}

/// An option that is given once at most: of two values one would be dropped.
void AddOption(cli::OptionSet& set, const std::string& name, cli::OptionSet::Take take) {
  set.AddOption(name, [take = std::move(take), isGiven = false](const std::string& word) mutable {
    if (std::exchange(isGiven, true)) {
      Refuse("is given twice");
    }
    take(word);
  });
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

// --- Commands -----------------------------------------------------------------------------------

void AddModuleWords(cli::OptionSet& set, Options& options, const std::string& file) {
  set.AddWord("TARGET", [&](const std::string& word) { options.target = TakeTarget(word); });
  set.AddWord("MODULE", [&](const std::string& word) {
    options.slot = TakeNumber(word, 0U, std::numeric_limits<unsigned>::max());
  });
  set.AddWord(file, [&](const std::string& word) { options.file = TakePath(word); });
}

void AddStateOptions(cli::OptionSet& set, Options& options) {
  constexpr unsigned kMostSeconds = 1'000'000;
  AddOption(set, "--state", [&](const std::string& word) { options.state = TakePath(word); });
  AddOption(set, "--wait", [&](const std::string& word) {
    options.waitSeconds = TakeNumber(word, 0U, kMostSeconds);
  });
  set.AddFlag("--json", options.json);
}

void AddImage(cli::OptionSet& set, Options& options) {
  set.AddWord("FILE", [&](const std::string& word) { options.file = TakePath(word); });
  AddOption(set, "--target", [&](const std::string& word) { options.target = TakeTarget(word); });
  AddOption(set, "--flash", [&](const std::string& word) { options.dump = TakePath(word); });
  set.AddFlag("--json", options.json);
}

void AddRead(cli::OptionSet& set, Options& options) {
  AddModuleWords(set, options, "FILE");
  AddOption(set, "--length", [&](const std::string& word) {
    options.length = TakeNumber(word, std::size_t{1}, kFlashBytes);
  });
  AddStateOptions(set, options);
}

void AddVerify(cli::OptionSet& set, Options& options) {
  AddModuleWords(set, options, "IMAGE");
  AddStateOptions(set, options);
}

void AddUpdate(cli::OptionSet& set, Options& options) {
  constexpr unsigned kMostAttempts = 100;
  constexpr unsigned kMostSeconds = 1'000'000;
  AddModuleWords(set, options, "IMAGE");
  AddOption(set, "--sha256", [&](const std::string& word) { options.sha256 = TakeSha256(word); });
  AddOption(set, "--attempts", [&](const std::string& word) {
    options.attempts = TakeNumber(word, 1U, kMostAttempts);
  });
  AddOption(set, "--timeout", [&](const std::string& word) {
    options.timeout = std::chrono::seconds(TakeNumber(word, 1U, kMostSeconds));
  });
  set.AddFlag("--restart", options.restart);
  set.AddFlag("--force", options.force);
  AddOption(set, "--program", [&](const std::string& word) { options.program = TakePath(word); });
  AddStateOptions(set, options);
}

}  // namespace

const char* NameOf(Options::Command command) {
  switch (command) {
    case Options::Command::kImage:
      break;
    case Options::Command::kRead:
      return "read";
    case Options::Command::kVerify:
      return "verify";
    case Options::Command::kUpdate:
      return "update";
  }
  return "image";
}

Options ParseOptions(std::span<const char* const> words) {
  Options options;
  cli::CommandLine line("tarnwickctl", kHelp);
  bool isImage = false;
  bool isRead = false;
  bool isVerify = false;
  bool isUpdate = false;
  AddImage(line.AddCommand("image", isImage), options);
  AddRead(line.AddCommand("read", isRead), options);
  AddVerify(line.AddCommand("verify", isVerify), options);
  AddUpdate(line.AddCommand("update", isUpdate), options);
  options.answer = line.Read(words);
  options.command = isRead     ? Options::Command::kRead
                    : isVerify ? Options::Command::kVerify
                    : isUpdate ? Options::Command::kUpdate
                               : Options::Command::kImage;
  return options;
}

}  // namespace companion
