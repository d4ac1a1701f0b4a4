#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/FileDescriptor.h"
#include "simulator/shim/LinkProtocol.h"

namespace orvane {

/// The host's end of the link to one process: whole questions and whole answers, cut into packets.
class LinkConnection {
 public:
  /// @param descriptor  of the socket; owned from here on
  explicit LinkConnection(int descriptor);

  int Descriptor() const { return descriptor_.Get(); }
  /// The process at the other end.
  pid_t Process() const { return process_; }

  /// Waits for a whole question; its first packet has arrived already.
  /// @param payload  gets the question's payload; valid until the next call
  /// @return false when the connection has ended or the question is malformed
  bool Receive(link::Question& question, std::span<const std::uint8_t>& payload);

  /// @param answer  payloadBytes is filled in here
  /// @return false when the connection has ended
  bool Send(link::Answer answer, std::span<const std::uint8_t> payload) const;

 private:
  FileDescriptor descriptor_;
  pid_t process_ = -1;
  std::unique_ptr<std::uint8_t[]> packet_;  // room for one
  std::vector<std::uint8_t> longPayload_;   // of a question that does not fit into one
};

}  // namespace orvane
