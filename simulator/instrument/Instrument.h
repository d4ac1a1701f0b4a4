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
#include "simulator/instrument/SpiMessage.h"
#include "simulator/instrument/SpiSettings.h"

namespace orvane {

/// The instrument: its modules, its time, and what programs can see of both. It makes no system
/// call. Every event goes through Arrive, which counts it and asks the fault rules, and ends in one
/// line of the log.
class Instrument {
 public:
  /// @param selector  borrowed; the modules borrow its model
  /// @param bufsiz  the limit of the spidev driver, in bytes
  /// @param log     borrowed
  Instrument(std::vector<std::unique_ptr<Module>> modules,
             ModuleSelectorFiles& selector,
             FaultRules faults,
             std::uint64_t bufsiz,
             EventLog& log);

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

  /// While fault rules are not active they neither count nor hit events. They are at the start.
  void SetFaultsActive(bool active) { faults_.SetActive(active); }

  // --- Events whose real call the program makes

  /// Counts the event and asks the fault rules. When a fault decides its result, this writes the
  /// line of the log; otherwise whoever carries the event out calls Complete.
  Fault Arrive(const Event& event);

  /// @param result  empty: nothing to show
  void Complete(const Event& event, std::string_view result = {}) { log_.Record(event, result); }

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

  void AddNodes();
  Node& FindNode(std::string_view path);
  Module* FindModule(unsigned slot);
  bool TakesAnswer(const Fault& fault);
  void LogSpeed(std::string_view path, Node& node, std::span<const SpiTransfer> transfers);
  int ProblemOf(const Node& node, const SpiTotals& totals, bool fits) const;
  EventResult Refuse(const Event& event, int error);
  DBusResult AnswerName(const char* method, unsigned slot, const std::string& name);

  std::vector<std::unique_ptr<Module>> modules_;
  FaultRules faults_;
  std::uint64_t bufsiz_;
  EventLog& log_;
  std::vector<I2cAdapter> adapters_;
  std::map<std::string, Node, std::less<>> nodes_;
  std::map<std::string, AttributeFiles*, std::less<>> attributes_;
};

}  // namespace orvane
