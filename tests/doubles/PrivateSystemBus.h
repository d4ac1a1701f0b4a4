#pragma once

#include <optional>
#include <string>

#include "simulator/bus/PrivateBus.h"
#include "tests/doubles/EnvironmentVariable.h"
#include "tests/doubles/TemporaryDirectory.h"

/// A dbus-daemon of the test. It is the system bus of this process as long as the object lives.
class PrivateSystemBus {
 public:
  [[nodiscard]] const std::string& Address() const { return address_; }

  /// Ends the daemon and waits until it is gone. The address stays, but nothing listens there.
  void Stop() { daemon_.reset(); }

 private:
  TemporaryDirectory directory_{"/tmp"};  // a socket's address is short
  std::optional<orvane::PrivateBus> daemon_{directory_.Path()};
  std::string address_ = daemon_->Address();
  EnvironmentVariable variable_{"DBUS_SYSTEM_BUS_ADDRESS", address_};
};
