#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "companion/image/ImageFile.h"
#include "companion/module/ModuleInterface.h"
#include "companion/report/Results.h"
#include "companion/state/StateInterface.h"

namespace companion {

/// What a sequence works with, besides its request. All of it is borrowed.
struct Services {
  ModuleInterface& module;
  StateInterface& state;
  /// Hands over the signals that have arrived meanwhile: calls Signalled() for each.
  std::function<void()> fetchSignals;
  /// Shows one line of diagnostics at once.
  std::function<void(const std::string& line)> say;
  /// Shows how far a reading is, in bytes.
  ModuleInterface::Progress progress;
  /// A clock that never goes back.
  std::function<std::chrono::milliseconds()> now;
};

/// How a command ends.
struct Ending {
  ExitCode exit = ExitCode::kRefused;
  std::string verdict;
};

/// The steps that read, verify and update have in common.
class Sequence {
 public:
  Sequence(const Sequence&) = delete;
  Sequence& operator=(const Sequence&) = delete;

 protected:
  /// @param result         of the whole command, borrowed
  /// @param signalsThatEnd  how many signals end what runs
  Sequence(Services services, ModuleResult& result, int signalsThatEnd);
  ~Sequence();

  /// Adds a line of diagnostics to the result, and shows it.
  void Note(const std::string& line);

  /// @return true when so many signals have come that what runs is ended
  [[nodiscard]] bool MustEndNow() const { return signals_ >= signalsThatEnd_; }

  /// Asks the bus for the names of the module's devices, and looks at them.
  /// @return how the command ends when there is no module that can be reached, or signals have ended
  ///         the search; nothing: go on
  std::optional<Ending> FindModule();

  /// Takes the lock, and finds the module again. After a signal the lock is not waited for.
  /// @param command  "update"
  /// @return how the command ends when the lock cannot be taken, or the module is no longer found;
  ///         nothing: go on
  std::optional<Ending> TakeLock(const std::string& command, unsigned waitSeconds);

  /// Reads the module, keeps what was found in the result and gives back what could not be given
  /// back at once.
  ModuleReading Read(std::size_t length, std::span<const std::uint8_t> expected);

  /// @return why the module is not given back now; empty when it is
  std::string GiveBackAgain(const Problem& before);

  /// For `read` and `verify`: the signal ends what runs.
  void StopReading(int signal);

  /// @return how the command ends when signals have ended it before anything was changed; nothing: go
  ///         on
  std::optional<Ending> StoppedBeforeReading();

  /// For `read` and `verify`.
  /// @return how the command ends when the contents are not certain, or the module could not be
  ///         given back; nothing: go on
  std::optional<Ending> JudgeReading(const ModuleReading& reading);

  /// Why a reading proves nothing; empty when its contents are certain.
  static std::string WhyUncertain(const ModuleReading& reading);

  Services services_;
  ModuleResult& result_;
  std::string notGivenBack_;  ///< after the last operation, although it was tried again
  int signals_ = 0;           ///< that have asked the command to stop
  int signalsThatEnd_;
};

/// What the image of a command is, for its result.
ImageFacts FactsOf(const ImageFile& image, std::string_view target);

/// @param why  as UnfitReason()
/// @return one line with what to do
std::string WhyUnfit(std::string_view target, const std::string& why);

/// @return why a name of a device from the bus is not used; empty when it can be
std::string WhyNotAName(std::string_view name);

/// @param signal  its number
/// @return "SIGINT"
std::string NameOfSignal(int signal);

/// @return one line: the first address that differs, both bytes, how many pages
std::string TextOf(const Difference& difference);

}  // namespace companion
