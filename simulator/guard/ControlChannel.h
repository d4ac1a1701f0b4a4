#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/FileDescriptor.h"

namespace orvane {

/// One end of the channel between the guard and the host: messages of text, whole or not at all, in
/// their order.
class ControlChannel {
 public:
  /// @throw std::system_error
  static std::pair<ControlChannel, ControlChannel> MakePair();

  /// Readable when there is a message, or the other end is closed.
  int Descriptor() const { return descriptor_.Get(); }

  /// @throw std::system_error, also when the other end is closed
  void Send(std::string_view message) const;

  /// Waits for a message.
  /// @return nothing when the other end is closed
  std::optional<std::string> Receive() const;

 private:
  explicit ControlChannel(int descriptor) : descriptor_(descriptor) {}

  FileDescriptor descriptor_;
};

}  // namespace orvane
