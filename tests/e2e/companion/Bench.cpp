#include "tests/e2e/companion/Bench.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "tests/doubles/ChildProcess.h"
#include "tests/e2e/Judgement.h"

namespace companion_test {

namespace {

namespace fs = std::filesystem;

/// Much more than any run takes. The instrument passes the signal on that ends one that hangs.
constexpr int kLongestRunMilliseconds = 60'000;

constexpr std::size_t kOldBytes = 100'000;  // two sectors

template <typename Container = std::string>
Container Slurp(const fs::path& path) {
  Container contents(static_cast<std::size_t>(fs::file_size(path)), 0);
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(contents.data()),
            static_cast<std::streamsize>(contents.size()));
  if (!file) {
    throw std::runtime_error("cannot read " + path.string());
  }
  return contents;
}

void Store(const fs::path& path, const void* bytes, std::size_t count) {
  std::ofstream file(path, std::ios::binary);
  file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

}  // namespace

std::string Quoted(const std::string& word) {
  std::string quoted = "'";
  for (const char letter : word) {
    quoted += letter == '\'' ? std::string(R"('\'')") : std::string(1, letter);
  }
  return quoted + "'";
}

Bench::Bench(const Board& board)
    : directory_(temporary_.Path()), board_(board), program_(TarnwickPath()) {
  fs::create_directory(directory_ / "cwd");
  StoreFlash(Build(2023, kOldBytes));
  StoreImage(Build(2024));
}

bool Bench::HasBootHeader() const {
  return board_.word == std::string_view(kWend.word) || board_.word == std::string_view(kPyx2.word);
}

Bytes Bench::Build(int year, std::size_t bytes) const {
  const auto seed = static_cast<std::uint32_t>(year);
  if (HasBootHeader()) {
    return orvane::MakeZynqImage(
        {.buildDate = std::to_string(year) + "-05-06 07:08:09", .bytes = bytes, .seed = seed});
  }
  return orvane::MakeBitstream(
      {.bytes = bytes, .userAccess = orvane::PackStamp({year, 5, 6, 7, 8, 9}), .seed = seed});
}

void Bench::StoreFlash(const Bytes& contents) {
  old_ = contents;
  WriteFile("../flash", contents);
}

void Bench::StoreImage(const Bytes& file, const Bytes& image) {
  image_ = image;
  WriteFile("image.bin", file);
}

void Bench::Option(std::vector<std::string> words) {
  std::ranges::move(words, std::back_inserter(options_));
}

void Bench::Environment(std::string name, std::string value) {
  environment_.emplace_back(std::move(name), std::move(value));
}

void Bench::BeforeTarnwick(const std::string& commands) {
  program_ = directory_ / "program";
  std::ofstream script(program_);
  script << "#!/bin/sh\n"
         << "tarnwick=" << Quoted(TarnwickPath()) << "\n"
         << "case $2 in -sf | --spi-flash) ;; *) exec \"$tarnwick\" \"$@\" ;; esac\n"
         << "folder=" << Quoted(directory_.string()) << "\n"
         << "cwd=" << Quoted(File("").string()) << "\n"
         << commands << "\nexec \"$tarnwick\" \"$@\"\n";
  script.close();
  fs::permissions(program_, fs::perms::owner_all);
}

std::string Bench::TarnwickPath() {
  const char* const named = std::getenv("TARNWICK_BINARY");
  return named != nullptr ? named : TARNWICK_BINARY_PATH;
}

std::string Bench::Tarnwick(const std::string& image) const {
  return Quoted(TarnwickPath()) + " " + board_.word + " -sf " + std::to_string(board_.slot) + " " +
         image;
}

std::string Bench::Companion(const std::string& words) {
  return Quoted(TARNWICKCTL_PATH) + " " + words;
}

std::string Bench::Update(const std::string& options) const {
  return Companion("update ") + board_.word + " " + std::to_string(board_.slot) +
         " image.bin --state " + Quoted(StateFolder().string()) + " --program " +
         Quoted(program_.string()) + " " + options;
}

std::string Bench::Verify(const std::string& options) const {
  return Companion("verify ") + board_.word + " " + std::to_string(board_.slot) +
         " image.bin --state " + Quoted(StateFolder().string()) + " " + options;
}

std::string Bench::Read(const std::string& options) const {
  return Companion("read ") + board_.word + " " + std::to_string(board_.slot) +
         " read.bin --state " + Quoted(StateFolder().string()) + " " + options;
}

Ended Bench::Run(const std::string& command) {
  const fs::path flash = directory_ / "flash";
  const fs::path state = directory_ / "modules";
  const std::string slot = std::to_string(board_.slot);
  std::vector<std::string> words = {
      ORVANE_SIM_PATH,
      "--log",
      directory_ / "log",
      "--state",
      state,
      "--module",
      std::string(board_.word) + "@" + slot + ",flash=" + flash.string() + keys_};
  if (isFast_) {
    words.emplace_back("--fast");
  }
  std::ranges::copy(options_, std::back_inserter(words));
  for (const std::string& fault : faults_) {
    words.insert(words.end(), {"--fault", fault});
  }
  std::ranges::copy(std::vector<std::string>{"--", "/bin/sh", "-c", command},
                    std::back_inserter(words));
  ChildProcess simulator({.words = words,
                          .directory = File("").string(),
                          .environment = environment_,
                          .unset = {"SPI_CLOCK_SPEED"},
                          .out = directory_ / "out",
                          .err = directory_ / "err"});
  Ended ended;
  ended.exitCode = simulator.Wait(kLongestRunMilliseconds).ExitCode();
  ended.out = Slurp(directory_ / "out");
  ended.err = Slurp(directory_ / "err");
  ended.log = program_test::run_log::LinesOf(Slurp(directory_ / "log"));
  ended.states = program_test::run_log::LinesOf(Slurp(state));
  for (const std::string& line : ended.states) {
    if (line.starts_with(slot + " ")) {
      ended.state = line.substr(slot.size() + 1);
    }
  }
  ended.flash = program_test::PaddedTo(kFlashBytes, Slurp<Bytes>(flash));
  return ended;
}

std::string Bench::Resting(const std::string& loaded) const {
  const std::string done = std::string("done=") + (loaded == "none" ? "0" : "1");
  if (board_.word == std::string_view(kWend.word)) {
    return done + " qspi_prg=0 loaded=" + loaded;
  }
  return done + " driven=0x0000" + (IsPyx() ? " pcie=enabled selector=SPILVDS" : "") +
         " loaded=" + loaded;
}

fs::path Bench::File(std::string_view name) const { return directory_ / "cwd" / name; }

void Bench::WriteFile(std::string_view name, const Bytes& contents) const {
  Store(File(name), contents.data(), contents.size());
}

void Bench::WriteText(std::string_view name, std::string_view text) const {
  Store(File(name), text.data(), text.size());
}

std::string Bench::ReadText(std::string_view name) const { return Slurp(File(name)); }

Lines Bench::NamesIn(const fs::path& folder) {
  Lines names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::ranges::sort(names);
  return names;
}

int CountLines(const Lines& log, const std::string& line) {
  return static_cast<int>(std::ranges::count(log, line));
}

int CountStarts(const Lines& log, const std::string& start) {
  return static_cast<int>(
      std::ranges::count_if(log, [&](const std::string& line) { return line.starts_with(start); }));
}

Lines FlashWrites(const Lines& log) {
  Lines writes;
  for (const std::string& line : log) {
    if (!line.starts_with("spi /dev/")) {
      continue;
    }
    const std::string what = line.substr(line.find(' ', std::string("spi ").size()) + 1);
    const std::string command = what.substr(0, what.find(' '));
    if (command != "speed" && command != "RDID" && command != "RDSR" && command != "RDCR" &&
        command != "READ") {
      writes.push_back(line);
    }
  }
  return writes;
}

void ExpectFlash(const Ended& ended, const Bytes& expected) {
  program_test::ExpectContents("flash", ended.flash, expected);
}

void ExpectFlashIsNeither(const Ended& ended, const Bench& bench) {
  EXPECT_FALSE(ended.flash == bench.Old()) << "the flash is untouched";
  EXPECT_FALSE(ended.flash == bench.New()) << "the flash holds the image";
}

}  // namespace companion_test
