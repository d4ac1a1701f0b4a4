#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "tests/support/EnvironmentVariable.h"

/// A real dbus-daemon of the test's own, which is the system bus of this process as long as the
/// object lives. It ends with the process too, however that ends.
class PrivateBus {
 public:
  PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;
  ~PrivateBus();

  [[nodiscard]] const std::string& address() const { return address_; }

  /// Ends the daemon and waits until it is gone. The address stays and leads nowhere.
  void Stop();

 private:
  pid_t daemon_;
  std::string address_;
  std::unique_ptr<EnvironmentVariable> systemBus_;
};
