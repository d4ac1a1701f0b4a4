#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "companion/report/Results.h"
#include "companion/update/Sequence.h"

namespace companion {

/// What `read` is asked to do.
struct ReadRequest {
  std::string target;
  unsigned slot = 0;
  std::string file;
  std::size_t length = kFlashBytes;  ///< bytes from address 0, 1 to kFlashBytes
  unsigned waitSeconds = 0;
};

/// Where the contents go. Both return why it failed, one line; empty when it did not.
struct OutputServices {
  /// Looks whether the file can be written, before the module is touched.
  std::function<std::string()> prepare;
  /// Makes the file whole or not at all.
  std::function<std::string(std::span<const std::uint8_t> contents)> store;
};

/// `read`: stores what the flash of a module holds. Changes nothing there.
class ReadSequence : private Sequence {
 public:
  ReadSequence(ReadRequest request, Services services, OutputServices output);

  ReadResult Run();

  /// A signal asks the command to stop. May be called in every callback of the services and while
  /// an operation runs.
  /// @param signal  its number
  void Signalled(int signal);

 private:
  Ending RunSteps();
  Ending ReadAndStore();

  ReadRequest request_;
  OutputServices output_;
  ReadResult read_;
};

}  // namespace companion
