#pragma once

#include <array>
#include <memory>

#include "simulator/host/ConsoleSockets.h"
#include "simulator/instrument/EventLog.h"
#include "simulator/instrument/Instrument.h"

namespace orvane {

/// The standard output and error of the command, merged in the order of its writes. What arrives is
/// logged and passed on to our own standard output and error.
class Console {
 public:
  /// @param sockets     borrowed; this process closes its writers
  /// @param log         borrowed
  /// @param instrument  borrowed; told what is printed
  Console(ConsoleSockets& sockets, EventLog& log, Instrument& instrument);
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// Readable when there is something to drain.
  int Descriptor() const { return sockets_.Receiver(); }

  /// Logs and passes on everything that has been written so far. Never waits for more.
  void Drain();

 private:
  const ConsoleSockets& sockets_;
  std::array<bool, 2> broken_{};  // our own cannot be written any more
  EventLog& log_;
  Instrument& instrument_;
  std::unique_ptr<char[]> buffer_;
};

}  // namespace orvane
