#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/boards/I2cTopology.h"
#include "simulator/boards/Module.h"
#include "simulator/boards/ModuleSelectorFiles.h"
#include "simulator/instrument/Event.h"
#include "simulator/instrument/EventLog.h"
#include "simulator/instrument/EventResult.h"
#include "simulator/instrument/FaultRules.h"
#include "simulator/instrument/I2cMessage.h"
#include "simulator/instrument/RunWatch.h"
#include "simulator/instrument/SpiMessage.h"
#include "simulator/instrument/SpiSettings.h"
#include "simulator/instrument/SpiWire.h"
#include "simulator/timing/InstrumentClock.h"
#include "simulator/timing/TimeTotals.h"
#include "simulator/timing/Timing.h"
#include "simulator/trace/RunObserver.h"

namespace orvane {

/// How instrument time passes.
struct TimingOptions {
  Timing timing = Timing::kPolls;           // that of the modules
  std::chrono::nanoseconds messageCost{0};  // before chip select falls; not with kPolls
  RunObserver* observer = nullptr;          // borrowed; null: nobody watches, as with kPolls
};

/// The instrument: its modules, its time, and what programs can see of both. It makes no system
/// call. Every event goes through Arrive, which counts it and asks the fault rules, and ends in one
/// line of the log.
class Instrument {
 public:
  /// @param selector  borrowed; the modules borrow its model
  /// @param buffers  of the spidev driver
  /// @param log     borrowed
  Instrument(std::vector<std::unique_ptr<Module>> modules,
             ModuleSelectorFiles& selector,
             FaultRules faults,
             SpiBuffers buffers,
             EventLog& log,
             TimingOptions timing = {});
  Instrument(const Instrument&) = delete;
  Instrument& operator=(const Instrument&) = delete;
  ~Instrument() = default;

  // --- Contents

  const std::vector<std::unique_ptr<Module>>& Modules() const { return modules_; }
  const std::vector<I2cAdapter>& I2cAdapters() const { return adapters_; }
  /// The paths of all device nodes.
  std::vector<std::string> NodePaths() const;
  bool HasNode(std::string_view path) const { return nodes_.find(path) != nodes_.end(); }
  /// The paths of the files under /sys that the instrument has.
  std::vector<std::string> AttributePaths() const;
  /// @return nothing when the instrument has no such file, or it does not exist now
  std::optional<std::string> AttributeContents(std::string_view path);

  /// The fault rules that have hit nothing so far, as their user typed them.
  std::vector<std::string> UnhitFaults() const { return faults_.Unhit(); }

  /// The slot and the state of each module, a line each.
  std::string DescribeModules() const;
  /// "instrument time=1.000000200": Now() in seconds; with Timing::kPolls "instrument estimate=". A line.
  std::string DescribeTime() const;

  // --- For whoever watches

  /// The command has printed something.
  /// @param descriptor  1 or 2
  void NoteConsole(int descriptor, std::string_view bytes);
  /// The run has ended.
  void NoteEnd();

  // --- Time. With Timing::kPolls chips know of sleeps only, and the rest is an estimate.

  /// Since the start; with Timing::kPolls what the events so far would have taken: sleeps, bits on the
  /// wire, and the work of chips, typically. What is sent to a busy chip is part of its work.
  std::chrono::nanoseconds Now() const;
  /// Not with Timing::kPolls.
  const TimeTotals& Totals() const { return clock_.Totals(); }
  /// Time that passes without an event. Not with Timing::kPolls.
  void PassTime(Cause cause, std::chrono::nanoseconds by);

  /// While fault rules are not active they neither count nor hit events. They are at the start.
  void SetFaultsActive(bool active) { faults_.SetActive(active); }

  // --- Events whose real call the program makes

  /// Counts the event and asks the fault rules. When a fault decides its result, this writes the
  /// line of the log; otherwise whoever carries the event out calls Complete.
  Fault Arrive(const Event& event);

  /// @param result  empty: nothing to show
  void Complete(const Event& event, std::string_view result = {});

  // --- Whole events

  /// @param path  of a node, as in the next four
  EventResult SubmitSpi(std::string_view path, const SpiMessage& message);
  /// @param sent  of all messages that write, in their order
  EventResult SubmitI2c(std::string_view path,
                        std::span<const I2cMessage> messages,
                        std::span<const std::uint8_t> sent);
  EventResult ReadSetting(std::string_view path, SpiSetting setting);
  EventResult WriteSetting(std::string_view path, SpiSetting setting, std::uint32_t value);
  /// Any other request to a device.
  EventResult RefuseRequest(std::string_view path, std::uint32_t request);

  /// @param path  one of AttributePaths()
  EventResult WriteAttribute(std::string_view path, std::string_view value);
  /// A write to an attribute that the program has made already, so no fault can take effect on it.
  /// @param path  one of AttributePaths()
  /// @return false: a fault rule hits it, and it is not carried out
  bool AcceptWrite(std::string_view path, std::string_view value);
  /// @param contents  of the whole file, of which `count` bytes from `offset` on are read
  EventResult ReadFile(std::string_view path,
                       std::string_view contents,
                       std::size_t offset,
                       std::size_t count);

  /// Instrument time advances by `duration`.
  EventResult Sleep(std::chrono::nanoseconds duration);

  DBusResult GetModuleLocations();
  DBusResult GetI2CBus(unsigned slot);
  DBusResult GetSPIDev(unsigned slot);

 private:
  struct Node {
    Module* module = nullptr;  // null: nothing is connected
    bool isSpi = false;
    std::optional<unsigned> channel;  // of an I2C multiplexer
    SpiSettings settings;
    std::uint32_t lastSpeedHz = 0;
    std::uint8_t lastBits = 0;
  };

  /// The bytes of a message, as they are on the wire.
  struct SpiRun {
    std::string_view path;
    std::span<const SpiTransfer> transfers;
    std::span<const ChipSelect> selects;
    std::size_t receivedBytes = 0;
    bool isLost = false;
  };

  void StartWatch();
  bool IsTimed() const { return timing_.timing != Timing::kPolls; }
  Fault Judge(const Event& event);
  std::vector<std::uint8_t> RunSpi(const Node& node, const SpiRun& run);
  std::vector<std::uint8_t> ExchangeSpi(Module* module,
                                        const SpiRun& run,
                                        ByteClock& wire,
                                        std::vector<ObservedSelect>& observed);
  std::optional<EventResult> EndBeforeBus(std::string_view path,
                                          const Event& event,
                                          const Fault& fault,
                                          int problem);
  int ExchangeI2c(const Node& node,
                  std::span<const I2cMessage> messages,
                  std::span<const std::uint8_t> sent,
                  std::span<std::uint8_t> received,
                  std::vector<ObservedI2cMessage>& observed);
  void PassI2cBits(std::uint64_t bits);
  void ObserveAccess(std::string_view path, bool writes, std::string_view bytes, Outcome outcome);
  void ObserveDBus(const Event& event, const Fault& fault);
  void ObserveOther(const Event& event, std::string_view result);
  void AddNodes();
  Node& FindNode(std::string_view path);
  Module* FindModule(unsigned slot);
  bool TakesAnswer(const Fault& fault);
  void LogSpeed(std::string_view path, Node& node, std::span<const SpiTransfer> transfers);
  int ProblemOf(const Node& node, const SpiMessage& message, bool fits) const;
  EventResult Refuse(const Event& event, int error);
  DBusResult AnswerName(const char* method, unsigned slot, const std::string& name);

  std::vector<std::unique_ptr<Module>> modules_;
  FaultRules faults_;
  SpiBuffers buffers_;
  EventLog& log_;
  TimingOptions timing_;
  InstrumentClock clock_;
  std::chrono::nanoseconds estimate_{0};  // without the work of chips
  std::optional<RunWatch> watch_;
  std::vector<I2cAdapter> adapters_;
  std::map<std::string, Node, std::less<>> nodes_;
  std::map<std::string, AttributeFiles*, std::less<>> attributes_;
};

}  // namespace orvane
