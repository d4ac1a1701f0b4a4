#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/host/ControlFiles.h"
#include "simulator/host/Testbed.h"
#include "simulator/instrument/Instrument.h"
#include "simulator/shim/LinkProtocol.h"

namespace orvane {

/// The files that programs open on the instrument: what kind of file each path is, where its
/// contents are, and the handles for paths on the link.
class FileTable {
 public:
  struct File {
    std::string path;  // as the program gave it
    link::Kind kind;
  };

  /// @param instrument  borrowed
  /// @param testbed     borrowed
  /// @param controls    borrowed
  FileTable(Instrument& instrument, const Testbed& testbed, const ControlFiles& controls);

  /// @throw std::out_of_range for a handle that HandleFor never returned
  const File& At(std::uint32_t handle) const { return files_.at(handle); }
  /// The same handle each time for the same path.
  std::uint32_t HandleFor(std::string_view path);

  /// The outcome of an open.
  struct Place {
    int error = 0;         // an errno: the open fails
    std::string realPath;  // empty: the path that the program gave
    int addedFlags = 0;    // to open it with, beside those that the program gave
  };
  Place Locate(const File& file, int flags) const;

  /// The whole contents of a file under /sys.
  std::string Contents(std::string_view path);

  /// Whether a file is an attribute of the instrument, which may not exist now.
  bool CanBeAttribute(std::string_view path) const { return !controls_.SinkOf(path).empty(); }
  /// Whether a file is an attribute of the instrument and exists now.
  bool IsAttribute(std::string_view path) const {
    return instrument_.AttributeContents(path).has_value();
  }

 private:
  Place LocateSysfs(const std::string& path, int flags) const;

  Instrument& instrument_;
  const Testbed& testbed_;
  const ControlFiles& controls_;
  std::vector<File> files_;  // by handle
  std::map<std::string, std::uint32_t, std::less<>> handles_;
};

}  // namespace orvane
