#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/host/FlashFile.h"
#include "simulator/host/Options.h"
#include "simulator/host/StateFile.h"
#include "simulator/host/StreamedFile.h"

namespace orvane {

/// The files that are written while the command runs, in the order of the texts about them.
enum class StreamKind { kLog, kTrace, kVcd };

/// The files that a command line names: the modules' flash files and those for what is loaded, those
/// that are written while the command runs, and --state. Whatever will be written has been found
/// writable when this object exists.
class RunFiles {
 public:
  /// Refuses files of which two are one, before any is opened; then opens the flash files, and
  /// creates or empties those that are written while the command runs, if nothing else is wrong.
  /// @throw UsageError
  explicit RunFiles(const Options& options);

  /// A file that is written while the command runs, owned here; null: there is none.
  std::ostream* Stream(StreamKind kind);
  /// Writes what these files still lack. Of each that is not whole, a text for the user.
  std::vector<std::string> FinishStreams();

  /// Hands over what the flash of this module holds at power-on; nothing without a flash file.
  std::vector<std::uint8_t> TakeFlash(const ModuleOptions& module);

  /// Saves what the flash of this module holds in its flash file, if it has one. Once for each.
  /// @throw std::runtime_error, with a text for the user
  void SaveFlash(const ModuleOptions& module, std::span<const std::uint8_t> contents) const;

  /// Saves what the FPGA of this module has loaded in its file for that, if it has one.
  /// @throw std::runtime_error, with a text for the user
  void SaveLoaded(const ModuleOptions& module, std::span<const std::uint8_t> contents) const;

  /// Writes the file of --state, if there is one.
  /// @throw std::runtime_error, with a text for the user
  void SaveState(std::string_view text) const;

  /// Removes the files that a host process has left because it was killed while it saved.
  static void RemoveTemporaries(const Options& options, pid_t host);

 private:
  struct Flash {
    explicit Flash(const std::string& path) : file(path), contents(file.Load()) {}

    FlashFile file;
    std::vector<std::uint8_t> contents;  // until they are taken
  };

  std::map<std::string, Flash> flashes_;     // by path
  std::map<std::string, StateFile> loaded_;  // likewise
  std::optional<StateFile> state_;
  std::vector<FileDescriptor> locks_;  // on the files that are not flash files
  std::map<StreamKind, StreamedFile> streams_;
};

}  // namespace orvane
