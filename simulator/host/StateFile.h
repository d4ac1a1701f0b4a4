#pragma once

#include <optional>
#include <string_view>

#include "base/FileDescriptor.h"
#include "simulator/host/OutputFile.h"
#include "simulator/host/WholeFile.h"

namespace orvane {

/// The file of --state. An ordinary one is replaced whole or not at all, see WholeFile; a device, a
/// pipe or a descriptor is opened at the start and written as it is.
class StateFile {
 public:
  /// Finds out whether it can be written; changes nothing.
  /// @throw std::system_error, with a text for the user
  explicit StateFile(OutputFile file);

  /// @throw std::system_error, with a text for the user
  void Write(std::string_view text) const;

 private:
  OutputFile output_;
  std::optional<WholeFile> whole_;
  std::optional<FileDescriptor> plain_;
};

}  // namespace orvane
