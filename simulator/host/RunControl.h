#pragma once

#include <string>
#include <string_view>

#include "simulator/host/RunHooks.h"
#include "simulator/host/ShimServer.h"
#include "simulator/instrument/Instrument.h"

namespace orvane {

/// What a program that drives the run asks of the instrument, over the socket of --control: one
/// question a packet, one answer a packet. Nothing of it is an event.
///
///   state                    the text of --state
///   flash SLOT FIRST COUNT   bytes of a module's flash, from the address FIRST on
///   loaded SLOT FIRST COUNT  the same of what its FPGA has loaded; none when nothing is loaded
///   faults off, faults on    fault rules neither count nor hit events, or do so again: done
///   hold N                   done; then, when a process makes the Nth call from now on, held: it gets
///                            no answer before `go`
///   go                       lets the process go on, and forgets a `hold` that was not reached: done
///   go N                     `go` and `hold N`, with no call between them: done
///
/// Anything else is answered with "error: " and why. Calls are the questions that are events, but for
/// those on D-Bus.
class RunControl {
 public:
  /// @param descriptor  of a socket that keeps packets apart; stays the caller's
  /// @param instrument  borrowed, as are the next two
  RunControl(int descriptor, Instrument& instrument, ShimServer& server, const RunHooks& hooks);
  RunControl(const RunControl&) = delete;
  RunControl& operator=(const RunControl&) = delete;
  ~RunControl();

 private:
  static int OnQuestion(int descriptor, int condition, void* self);
  std::string AnswerTo(const std::string& question);
  std::string Bytes(const std::string& what, unsigned slot, std::size_t first, std::size_t count);
  void Send(std::string_view answer) const;

  int descriptor_;
  Instrument& instrument_;
  ShimServer& server_;
  const RunHooks& hooks_;
  unsigned source_ = 0;
};

}  // namespace orvane
