#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>

#include "simulator/instrument/EventLog.h"

namespace orvane {

/// The standard output and error of the command, merged in the order of its writes: both are
/// datagram sockets connected to the same receiver, so that each write is one datagram, and
/// datagrams keep their order. What arrives is logged and passed on to our own standard output and
/// error.
class Console {
 public:
  /// @param directory  for the addresses of the sockets
  /// @param log        borrowed
  /// @throw std::system_error
  Console(const std::string& directory, EventLog& log);
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  ~Console();

  /// Readable when there is something to drain.
  int Descriptor() const { return receiver_; }
  /// What the command gets as its descriptor 1 or 2. Owned here until CloseWriters().
  int WriterFor(int descriptor) const {
    return writers_.at(static_cast<std::size_t>(descriptor - 1));
  }
  void CloseWriters();

  /// Logs and passes on everything that has been written so far. Never waits for more.
  void Drain();

 private:
  int receiver_ = -1;
  std::array<int, 2> writers_{-1, -1};
  std::array<bool, 2> broken_{};  // our own cannot be written any more
  EventLog& log_;
  std::unique_ptr<char[]> buffer_;
};

}  // namespace orvane
