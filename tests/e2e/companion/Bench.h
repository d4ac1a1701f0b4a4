#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/doubles/TemporaryDirectory.h"
#include "tests/e2e/FlashContents.h"
#include "tests/e2e/ProgramTest.h"
#include "tests/e2e/RunLog.h"

/// Updates of one module by `tarnwick` alone and by `tarnwickctl`, each from the same start.
namespace companion_test {

using program_test::Board;
using program_test::Bytes;
using program_test::kDax;
using program_test::kFlashBytes;
using program_test::kPyx1;
using program_test::kPyx2;
using program_test::kWend;
using program_test::run_log::Lines;

/// What one command on the instrument came to.
struct Ended {
  int exitCode = -1;  ///< as a shell shows it
  std::string out;
  std::string err;
  Lines log;          ///< every event in true order
  std::string state;  ///< of the module under test, without its slot
  Lines states;       ///< of all modules
  Bytes flash;        ///< of the module under test, all of it
};

/// One module on an instrument of its own. Its flash holds a build of 2023, of which the FPGA runs;
/// image.bin is a build of 2024. The working directory of the commands is a fresh folder.
class Bench {
 public:
  explicit Bench(const Board& board);
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // --- The start

  /// A build of the year: a bitstream stamped 06/05 07:08:09, or a boot image dated so.
  [[nodiscard]] Bytes Build(int year, std::size_t bytes = 600) const;
  [[nodiscard]] bool HasBootHeader() const;
  [[nodiscard]] bool IsPyx() const { return board_.word[0] == 'p'; }

  void StoreFlash(const Bytes& contents);
  /// image.bin is this plain image.
  void StoreImage(const Bytes& image) { StoreImage(image, image); }
  /// image.bin is this file, and it is written as this image.
  void StoreImage(const Bytes& file, const Bytes& image);

  void Key(const std::string& pair) { keys_ += "," + pair; }
  void Fault(const std::string& rule) { faults_.push_back(rule); }
  void WithoutFaults() { faults_.clear(); }
  void Option(std::vector<std::string> words);
  /// Another module on the instrument, with a blank flash.
  void PlugIn(const std::string& module) { Option({"--module", module}); }
  /// Lets sleeps take their time.
  void WithoutFast() { isFast_ = false; }
  void Environment(std::string name, std::string value);

  /// From now on the updates of `tarnwickctl` start `tarnwick` by a shell script, which first runs
  /// these commands. `$$` is the process that becomes `tarnwick`, `$PPID` the one that started it.
  /// The script's working directory is that of `tarnwick`.
  void BeforeTarnwick(const std::string& commands);

  // --- Commands, each as text for a shell

  /// The `tarnwick` under test. The environment of the tests can name another build.
  [[nodiscard]] static std::string TarnwickPath();

  [[nodiscard]] std::string Tarnwick(const std::string& image = "image.bin") const;
  [[nodiscard]] std::string Update(const std::string& options = "") const;
  [[nodiscard]] std::string Verify(const std::string& options = "") const;
  [[nodiscard]] std::string Read(const std::string& options = "") const;
  /// `tarnwickctl` with these words, as they are typed.
  [[nodiscard]] static std::string Companion(const std::string& words);

  /// Runs a shell command on the instrument. The module keeps its flash for the next one, which is
  /// run after switching it off and on.
  Ended Run(const std::string& command);

  // --- What is there afterwards

  [[nodiscard]] Bytes Old() const { return program_test::PaddedTo(kFlashBytes, old_); }
  /// The image in its sectors, and what was there before.
  [[nodiscard]] Bytes New() const { return program_test::Flashed(image_, old_); }
  [[nodiscard]] const Bytes& Image() const { return image_; }
  /// The module as the instrument describes it when nothing is driven and the flash is in use.
  [[nodiscard]] std::string InUse() const { return Resting("current"); }
  [[nodiscard]] std::string Resting(const std::string& loaded) const;

  [[nodiscard]] std::filesystem::path File(std::string_view name) const;
  [[nodiscard]] std::filesystem::path StateFolder() const { return directory_ / "state"; }
  void WriteFile(std::string_view name, const Bytes& contents) const;
  void WriteText(std::string_view name, std::string_view text) const;
  [[nodiscard]] std::string ReadText(std::string_view name) const;

  /// Names in a folder, sorted.
  [[nodiscard]] static Lines NamesIn(const std::filesystem::path& folder);

 private:
  TemporaryDirectory temporary_;
  std::filesystem::path directory_;
  Board board_;
  Bytes old_;
  Bytes image_;
  std::string keys_;
  std::vector<std::string> options_;
  std::vector<std::string> faults_;
  std::vector<std::pair<std::string, std::string>> environment_;
  bool isFast_ = true;
  std::filesystem::path program_;
};

/// A word for a shell, whatever is in it.
std::string Quoted(const std::string& word);

/// Lines of a log that are equal to a line, or begin with a text.
int CountLines(const Lines& log, const std::string& line);
int CountStarts(const Lines& log, const std::string& start);

/// Commands to the flash that change its contents or its registers, and erase or program nothing
/// else: write enables are not counted.
Lines FlashWrites(const Lines& log);

/// Fails the test when contents differ, without printing 16 MiB.
void ExpectFlash(const Ended& ended, const Bytes& expected);
void ExpectFlashIsNeither(const Ended& ended, const Bench& bench);

}  // namespace companion_test
