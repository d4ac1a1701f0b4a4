#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/doubles/ChildProcess.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace program_test {

using Bytes = std::vector<unsigned char>;

/// What one run of the program did.
struct Outcome {
  std::string out;
  std::string err;
  int exitCode = -1;
  std::string log;  ///< every event in true order, console included, one a line
};

/// The exit code of a run that has used up its processor time.
inline constexpr int kOutOfTime = 152;

/// A virtual instrument in a fresh working directory of its own, which goes with it. The real
/// executable runs on it with shortened sleeps; its clocks are its own.
class VirtualInstrument {
 public:
  VirtualInstrument();
  VirtualInstrument(const VirtualInstrument&) = delete;
  VirtualInstrument& operator=(const VirtualInstrument&) = delete;

  /// Adds an option of orvane-sim, such as {"--module", "wend@1"}.
  void Option(std::vector<std::string> words);

  /// Adds options as they are typed, "--module wend@1"; see SplitWords().
  void Options(const std::string& words) { Option(SplitWords(words)); }

  /// Sets a variable of the program's environment.
  void Environment(std::string name, std::string value);

  /// Runs the program with these words after its name. Paths are relative to the directory.
  Outcome Run(const std::vector<std::string>& words);

  /// The same with the words as they are typed, "wend -sf 1 image.bin".
  Outcome RunWords(const std::string& words) { return Run(SplitWords(words)); }

  /// Run() with one second of processor time: far more than any run takes that ends by itself,
  /// so one that is out of time never ends.
  Outcome RunLimited(const std::vector<std::string>& words);

  /// Runs a shell command on the instrument; "$TARNWICK" in it is the program.
  Outcome RunShell(const std::string& command);

  /// A file of the working directory.
  [[nodiscard]] std::filesystem::path File(std::string_view name) const;
  void WriteFile(std::string_view name, const Bytes& contents) const;
  [[nodiscard]] Bytes ReadFile(std::string_view name) const;

 private:
  Outcome RunCommand(const std::vector<std::string>& command);

  TemporaryDirectory temporary_;
  std::filesystem::path directory_;
  std::vector<std::string> options_;
  std::vector<std::pair<std::string, std::string>> environment_;
};

}  // namespace program_test
