#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "simulator/trace/RunObserver.h"

#include <nlohmann/json_fwd.hpp>

namespace orvane {

/// Writes a run as Chrome trace events, in JSON. Each event is written when it is over, so memory does
/// not grow with the run. Times are microseconds of instrument time, exact to the nanosecond in the first
/// 100 days of a run.
///
/// The command is a process of the trace, and so are each module and the chassis. The tracks of a process
/// are its threads: the console, sleeps, control files and so on of the command, the buses and the flash
/// of a module. The lines of a module are counters: a line has a level at every time, and only its
/// changes are written.
class ChromeTrace : public RunObserver {
 public:
  /// @param out  borrowed; what cannot be written shows in its state
  explicit ChromeTrace(std::ostream& out);
  ChromeTrace(const ChromeTrace&) = delete;
  ChromeTrace& operator=(const ChromeTrace&) = delete;
  /// The trace is complete then, also when the run has not come to its end.
  ~ChromeTrace() override;

  void OnStart(std::span<const ObservedModule> modules,
               std::span<const std::string> chassisI2c) override;
  void OnSpi(const ObservedSpi& message) override;
  void OnI2c(const ObservedI2c& transfer) override;
  void OnAccess(const ObservedAccess& access) override;
  void OnDBus(std::string_view call, std::chrono::nanoseconds at, Outcome outcome) override;
  void OnSleep(Period period) override;
  void OnUnseen(Period period) override;
  void OnConsole(int descriptor, std::string_view bytes, std::chrono::nanoseconds at) override;
  void OnOther(std::string_view text, std::chrono::nanoseconds at) override;
  void OnChipBusy(unsigned slot,
                  ChipWork work,
                  std::uint32_t address,
                  std::chrono::nanoseconds at) override;
  void OnChipReady(unsigned slot, std::chrono::nanoseconds at) override;
  void OnLine(unsigned slot, LineLevel level, std::chrono::nanoseconds at) override;
  void OnEnd(std::chrono::nanoseconds at) override;

 private:
  using Json = nlohmann::ordered_json;

  struct Track {
    unsigned process = 0;
    unsigned thread = 0;
  };
  struct Work {
    ChipWork what = ChipWork::kNone;
    std::uint32_t address = 0;
    std::chrono::nanoseconds begin{0};
  };
  struct ModuleTracks {
    unsigned process = 0;
    Track flash;
    bool isWend = false;
    std::map<Line, bool> lines;  // their levels
    std::optional<Work> work;    // of the flash; none: it is ready
  };
  struct Printed {
    int descriptor = 0;
    std::string bytes;
    std::chrono::nanoseconds at{0};
  };

  unsigned AddProcess(std::string_view name);
  Track AddTrack(unsigned process, std::string_view name);
  void AddNode(unsigned process, std::string_view path);
  void AddModule(const ObservedModule& module);
  /// @return that of other events for a path that is not a node's
  const Track& TrackOf(std::string_view path) const;

  void WriteLevel(const ModuleTracks& module, LineLevel level, std::chrono::nanoseconds at);
  void WriteWork(ModuleTracks& module, std::chrono::nanoseconds end, bool isOver);
  void WritePrinted(std::chrono::nanoseconds end);
  /// @param event  without its track
  void Write(const Track& track, Json event);
  void Write(const Json& event);
  void Complete();

  std::ostream& out_;
  bool isFirst_ = true;
  bool isComplete_ = false;
  unsigned lastId_ = 0;  // of processes and threads; viewers take 0 for the idle process
  unsigned command_;
  Track console_;
  Track sleeps_;
  Track looks_;
  Track accesses_;
  Track calls_;
  Track others_;
  std::map<std::string, Track, std::less<>> nodes_;  // by path
  std::map<unsigned, ModuleTracks> modules_;         // by slot
  std::optional<Printed> printed_;                   // last; until more is printed
};

}  // namespace orvane
