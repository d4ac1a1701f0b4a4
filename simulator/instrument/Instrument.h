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
#include "simulator/instrument/EventKind.h"
#include "simulator/instrument/EventLog.h"
#include "simulator/instrument/FaultRules.h"
#include "simulator/shim/LinkProtocol.h"

namespace orvane {

/// What a program gets for an event.
struct Outcome {
  bool killed = false;  // it gets nothing any more
  int error = 0;        // an errno; 0: success
  std::int64_t value = 0;
  std::vector<std::uint8_t> bytes;
};

/// Likewise, for a call of a D-Bus method.
struct DBusOutcome {
  bool killed = false;
  std::string error;  // the name of a D-Bus error; empty: success
  std::string text;
  std::vector<int> numbers;
};

/// The settings of an SPI device that have requests of their own.
enum class SpiSetting { kMode, kLsbFirst, kBitsPerWord, kMaxSpeedHz, kMode32 };

/// The instrument: its modules, its time, and what its programs see of both. It makes no system
/// call. Every event goes through Arrive, which counts it and asks the fault rules, and ends in one
/// line of the log.
class Instrument {
 public:
  static constexpr std::uint32_t kMaxSpeedHz = 50'000'000;  // of every SPI device at power-on

  /// @param selector  borrowed; the modules know its model
  /// @param bufsiz  the limit of the spidev driver, in bytes
  /// @param log     borrowed
  Instrument(std::vector<std::unique_ptr<Module>> modules,
             ModuleSelectorFiles& selector,
             FaultRules faults,
             std::uint64_t bufsiz,
             EventLog& log);

  // --- What there is

  const std::vector<std::unique_ptr<Module>>& Modules() const { return modules_; }
  const std::vector<I2cAdapter>& I2cAdapters() const { return adapters_; }
  /// The paths of all device nodes.
  std::vector<std::string> NodePaths() const;
  bool HasNode(std::string_view path) const { return nodes_.find(path) != nodes_.end(); }
  /// The paths of the files under /sys that the instrument answers for.
  std::vector<std::string> AttributePaths() const;
  /// @return nothing when nobody answers for this file, or it is not there now
  std::optional<std::string> AttributeContents(std::string_view path);

  // --- Events whose real call somebody else makes

  /// Counts the event and asks the fault rules. Writes the line of the log when the event has its
  /// result by that; otherwise whoever carries it out calls Complete.
  /// @param text  the event as the log shows it
  Fault Arrive(EventKind kind, std::string_view text);

  /// @param result  empty: nothing to show
  void Complete(EventKind kind, std::string_view text, std::string_view result = {});

  // --- Whole events

  /// @param path  a node's
  /// @param sent  of all transfers that send, one behind the other; none: too large to be carried
  Outcome SubmitSpi(std::string_view path,
                    std::span<const link::SpiTransfer> transfers,
                    std::optional<std::span<const std::uint8_t>> sent);
  Outcome SubmitI2c(std::string_view path,
                    std::span<const link::I2cMessage> messages,
                    std::span<const std::uint8_t> sent);
  Outcome ReadSetting(std::string_view path, SpiSetting setting);
  Outcome WriteSetting(std::string_view path, SpiSetting setting, std::uint32_t value);
  /// Any other request to a device.
  Outcome RefuseRequest(std::string_view path, std::uint32_t request);

  /// @param path  one of AttributePaths()
  Outcome WriteAttribute(std::string_view path, std::string_view value);
  /// @param contents  of the whole file
  Outcome ReadFile(std::string_view path,
                   std::string_view contents,
                   std::size_t offset,
                   std::size_t count);

  /// Instrument time advances by `duration`.
  Outcome Sleep(std::chrono::nanoseconds duration);

  DBusOutcome GetModuleLocations();
  DBusOutcome GetI2CBus(unsigned slot);
  DBusOutcome GetSPIDev(unsigned slot);

 private:
  struct Node {
    Module* module = nullptr;  // null: nothing is connected
    bool isSpi = false;
    std::optional<unsigned> channel;  // of an I2C multiplexer
    std::map<SpiSetting, std::uint32_t> settings;
    std::uint32_t lastSpeedHz = 0;
    std::uint8_t lastBits = 0;
  };

  void AddNodes();
  Node& FindNode(std::string_view path);
  Module* FindModule(unsigned slot);
  void LogSpeed(std::string_view path, Node& node, std::span<const link::SpiTransfer> transfers);
  DBusOutcome AnswerName(const char* method, unsigned slot, const std::string& name);

  std::vector<std::unique_ptr<Module>> modules_;
  FaultRules faults_;
  std::uint64_t bufsiz_;
  EventLog& log_;
  std::vector<I2cAdapter> adapters_;
  std::map<std::string, Node, std::less<>> nodes_;
  std::map<std::string, AttributeFiles*, std::less<>> attributes_;
};

}  // namespace orvane
