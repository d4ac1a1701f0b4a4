#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// One connection to the system bus, for calls to one service. Blocks until each reply has arrived.
/// Everything that goes wrong is a std::runtime_error with the text
///   METHOD: the bus's own error
/// or SERVICE: ... from the constructor. The bus's own error is the D-Bus error name and message,
/// or the system's text where there is no name.
class SystemBus {
 public:
  /// Connects, to DBUS_SYSTEM_BUS_ADDRESS where that is set.
  /// @param service  the service's bus name, which is also the name of its interface
  /// @param path     of its object; both are borrowed and must outlive this object
  SystemBus(const char* service, const char* path);

  /// Calls `method` without arguments.
  /// @return its reply, which must be one array of 32-bit numbers (ai), in the order sent
  std::vector<int> CallForNumbers(const char* method);

  /// Calls `method` with one unsigned 32-bit number (u).
  /// @return its reply, which must be one text (s)
  std::string CallForText(const char* method, std::uint32_t argument);

 private:
  struct ReleaseBus {
    void operator()(sd_bus* bus) const;
  };
  struct ReleaseMessage {
    void operator()(sd_bus_message* message) const;
  };
  using Message = std::unique_ptr<sd_bus_message, ReleaseMessage>;

  template <typename... Arguments>
  Message Call(const char* method,
               const char* replyType,
               const char* argumentTypes,
               Arguments... arguments);

  const char* service_;
  const char* path_;
  std::unique_ptr<sd_bus, ReleaseBus> bus_;
};
