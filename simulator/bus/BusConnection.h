#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvane {

/// A connection to a D-Bus bus, with objects that are served on it from the main context of the
/// thread that made it.
class BusConnection {
 public:
  /// Answers a call, or hands its reference back.
  using Handler = std::function<void(GDBusMethodInvocation*)>;

  /// An object as its description names it.
  struct Object {
    std::string path;
    std::string interface;
  };

  /// @throw std::runtime_error
  explicit BusConnection(const std::string& address);
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  ~BusConnection();

  /// Serves the object that `xml` describes, and takes the bus name of its first interface.
  /// @throw std::runtime_error, also when somebody else has that name
  Object Offer(const std::string& xml, Handler handler);

  /// Asks the bus daemon itself. It must not run the main loop, because that may run the caller.
  /// @param arguments  taken over when floating
  /// @return the number in the reply
  /// @throw std::runtime_error
  std::uint32_t AskDaemon(const char* method, GVariant* arguments);

 private:
  struct Unref {
    void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
  };

  std::unique_ptr<GDBusConnection, Unref> connection_;
  std::vector<std::unique_ptr<Handler>> handlers_;
  std::vector<guint> objects_;
};

}  // namespace orvane
