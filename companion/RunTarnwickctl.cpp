#include "companion/RunTarnwickctl.h"

#include <chrono>
#include <csignal>
#include <exception>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "app/SpiClock.h"
#include "app/Targets.h"
#include "cli/CommandLine.h"
#include "companion/image/ImageCommand.h"
#include "companion/image/ImageFile.h"
#include "companion/module/Module.h"
#include "companion/process/SignalWatch.h"
#include "companion/process/SpidevLimit.h"
#include "companion/process/TarnwickProgram.h"
#include "companion/report/Console.h"
#include "companion/report/JsonReport.h"
#include "companion/report/Options.h"
#include "companion/report/OutputFile.h"
#include "companion/report/TextReport.h"
#include "companion/state/StateFolder.h"
#include "companion/update/ReadSequence.h"
#include "companion/update/UpdateSequence.h"
#include "companion/update/VerifySequence.h"

namespace companion {

namespace {

std::chrono::milliseconds Now() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now().time_since_epoch());
}

/// What all commands with a module work with.
struct Workplace {
  Workplace(const Options& options, Console& to)
      : console(to),
        state(options.state,
              {.descriptor = watch.Descriptor(), .hasArrived = [this] { return IsStopped(); }}),
        module(*FindTarget(options.target),
               options.slot,
               watch,
               options.command == Options::Command::kUpdate ? OtherLines::kInputs
                                                            : OtherLines::kAsFound) {}

  bool IsStopped() {
    watch.Read();
    return watch.StopSignals() > 0;
  }

  Services AsServices() {
    return {.module = module,
            .state = state,
            .fetchSignals = [this] { watch.Read(); },
            .say = [this](const std::string& line) { console.Say(line); },
            .progress = [this](std::size_t done,
                               std::size_t total) { console.ShowProgress(done, total); },
            .now = Now};
  }

  /// Runs a sequence to its end, and lets signals reach it.
  template <typename Sequence>
  auto Run(Sequence& sequence) {
    watch.OnStop([&](int signal, int /*count*/) { sequence.Signalled(signal); });
    auto result = sequence.Run();
    watch.OnStop({});
    return result;
  }

  Console& console;
  SignalWatch watch;
  StateFolder state;
  Module module;
};

/// A result that ends before its sequence.
template <typename Result>
Result Ended(const Options& options, ExitCode exit, std::string verdict) {
  Result result;
  result.exit = exit;
  result.verdict = std::move(verdict);
  result.target = options.target;
  result.slot = options.slot;
  return result;
}

template <typename Result>
Result Refused(const Options& options, const std::string& why) {
  return Ended<Result>(options, ExitCode::kRefused, "Refused: " + why + ".");
}

ReadResult Read(const Options& options, Console& console) {
  Workplace workplace(options, console);
  OutputFile file(options.file);
  const OutputServices output = {
      .prepare = [&] { return file.Prepare(); },
      .store = [&](std::span<const std::uint8_t> contents) { return file.Store(contents); }};
  ReadSequence sequence({.target = options.target,
                         .slot = options.slot,
                         .file = options.file,
                         .length = options.length,
                         .waitSeconds = options.waitSeconds},
                        workplace.AsServices(),
                        output);
  return workplace.Run(sequence);
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

VerifyResult Verify(const Options& options, Console& console) {
  Workplace workplace(options, console);
  const ImageReading reading = ReadImageFile(options.file);
  if (!reading.image) {
    return Refused<VerifyResult>(options, reading.refusal);
  }
  VerifySequence sequence({.target = options.target,
                           .slot = options.slot,
                           .image = *reading.image,
                           .waitSeconds = options.waitSeconds},
                          workplace.AsServices());
  return workplace.Run(sequence);
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

UpdateResult Update(const Options& options, Console& console) {
  Workplace workplace(options, console);
  const ImageReading reading = ReadImageFile(options.file);
  if (!reading.image) {
    return Refused<UpdateResult>(options, reading.refusal);
  }
  TarnwickProgram program(
      workplace.watch,
      {.path = options.program,
       .timeout = options.timeout,
       .spiClockMHz = SpiClockMHz(),
       .workFolder = [&] { return workplace.state.WorkFolderDescriptor(); },
       .output = [&](std::string_view bytes, bool isError) { console.PassOn(bytes, isError); }});
  UpdateSequence sequence({.target = options.target,
                           .slot = options.slot,
                           .image = *reading.image,
                           .sha256 = options.sha256,
                           .attempts = options.attempts,
                           .restart = options.restart,
                           .force = options.force,
                           .waitSeconds = options.waitSeconds},
                          workplace.AsServices(),
                          program,
                          SpidevLimitProblem);
  return workplace.Run(sequence);
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

/// Runs a command and reports its result.
template <typename Result>
ExitCode Report(const Options& options,
                Console& console,
                Result (*run)(const Options&, Console&),
                std::string (*text)(const Result&),
                std::string (*json)(const Result&)) {
  Result result;
  try {
    result = run(options, console);
  } catch (const std::exception& error) {  // GCOVR_EXCL_BR_LINE: an exception of another type
    // Memory or descriptors have run out. What the module was told is not known here.
    const ExitCode exit =
        options.command == Options::Command::kUpdate ? ExitCode::kNot : ExitCode::kUnreachable;
    result = Ended<Result>(options, exit, std::string("Ended early: ") + error.what() + ".");
  }
  console.Report(options.json ? json(result) : text(result));
  return result.exit;
}

ExitCode RunCommand(const Options& options, std::ostream& out, std::ostream& err, bool isTerminal) {
  Console console(out, err, options.json, isTerminal);
  switch (options.command) {
    case Options::Command::kImage:
      break;
    case Options::Command::kRead:
      return Report(options, console, Read, ReadText, ReadJson);
    case Options::Command::kVerify:
      return Report(options, console, Verify, VerifyText, VerifyJson);
    case Options::Command::kUpdate:
      return Report(options, console, Update, UpdateText, UpdateJson);
  }
  return RunImage({.path = options.file,
                   .target = options.target.empty() ? std::nullopt : std::optional(options.target),
                   .dump = options.dump,
                   .json = options.json},
                  out);
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

}  // namespace

int RunTarnwickctl(std::span<const char* const> words,
                   std::ostream& out,
                   std::ostream& err,
                   bool isTerminal) {
  // A console that closes must not take the place of the exit code, also not at the very end.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  Options options;
  try {
    options = ParseOptions(words);
  } catch (const cli::UsageError& error) {  // GCOVR_EXCL_BR_LINE: an exception of another type
    err << cli::UsageText("tarnwickctl", error.what()) << std::flush;
    return static_cast<int>(ExitCode::kRefused);
  }
  ExitCode exit = ExitCode::kDone;
  if (options.answer) {
    out << *options.answer << std::flush;
  } else {
    exit = RunCommand(options, out, err, isTerminal);
  }
  // The exit code is the verdict on file or module, and stays.
  if (!out) {
    err << "tarnwickctl: cannot write to standard output" << std::endl;
  }
  return static_cast<int>(exit);
}

}  // namespace companion
