#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "companion/process/ProgramInterface.h"
#include "companion/process/SignalWatch.h"

namespace companion {

/// Runs `tarnwick` in a process group of its own, with standard input from /dev/null, without stop
/// signals, and with a time limit that ends it also when this process has ended before. Inherits what
/// is not closed by exec, the lock among it, and the environment. The standard descriptors of this
/// process must be open.
class TarnwickProgram : public ProgramInterface {
 public:
  /// @param bytes    what `tarnwick` has printed since the last call, as it came
  /// @param isError  on standard error
  using Output = std::function<void(std::string_view bytes, bool isError)>;

  struct Settings {
    std::string path;  ///< empty: beside this executable, or else in PATH
    std::optional<std::chrono::seconds> timeout;  ///< of an update; none: LongestUpdate()
    unsigned spiClockMHz = 0;                     ///< for LongestUpdate()
    std::function<int()> workFolder;              ///< its descriptor, borrowed
    Output output;                                ///< may be empty; not called by Check()
    std::chrono::milliseconds helpTimeout{20'000};
  };

  /// @param watch  borrowed; read while `tarnwick` runs, so that its callbacks come then
  TarnwickProgram(SignalWatch& watch, Settings settings);
  TarnwickProgram(const TarnwickProgram&) = delete;
  TarnwickProgram& operator=(const TarnwickProgram&) = delete;
  ~TarnwickProgram() override;

  /// @return the path of the program, absolute; empty when none was given and none is found
  [[nodiscard]] const std::string& Path() const { return path_; }

  std::string Check() override;
  ProgramRun Update(const std::string& target, unsigned module, const std::string& image) override;
  void Kill() override;

 private:
  struct Start;
  struct Readers;
  struct Stream;

  ProgramRun Run(const Start& start);
  std::optional<Readers> Launch(const Start& start, std::string& problem);
  void Follow(Stream& out, Stream& err);
  static bool HasEnded(pid_t id);
  void End(ProgramRun& run);
  [[nodiscard]] std::string HelpProblem(const ProgramRun& run) const;
  [[nodiscard]] std::chrono::milliseconds UpdateLimit(const std::string& image) const;

  SignalWatch& watch_;
  Settings settings_;
  std::string path_;
  pid_t child_ = 0;  // 0: none runs
  bool isKilled_ = false;
};

}  // namespace companion
