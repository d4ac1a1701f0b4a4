#include "simulator/bus/BusConnection.h"

#include <stdexcept>
#include <utility>

namespace orvane {

namespace {

constexpr const char* kDaemonName = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";
constexpr std::uint32_t kDoNotQueue = 4;
constexpr std::uint32_t kOwnerNow = 1;  // what RequestName answers on success

class Error {
 public:
  Error() = default;
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;
  ~Error() { g_clear_error(&error_); }
  GError** Out() { return &error_; }
  [[noreturn]] void Throw(const std::string& what) const {
    throw std::runtime_error(what + ": " + (error_ == nullptr ? "no reply" : error_->message));
  }

 private:
  GError* error_ = nullptr;
};

struct Release {
  void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
  void operator()(GVariant* value) const { g_variant_unref(value); }
};
template <typename T>
using Owner = std::unique_ptr<T, Release>;

void OnCall(GDBusConnection* /*connection*/,
            const char* /*sender*/,
            const char* /*path*/,
            const char* /*interface*/,
            const char* /*method*/,
            GVariant* /*arguments*/,
            GDBusMethodInvocation* invocation,
            void* handler) {
  (*static_cast<BusConnection::Handler*>(handler))(invocation);
}

}  // namespace

BusConnection::BusConnection(const std::string& address) {
  Error error;
  connection_.reset(g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr,
      nullptr,
      error.Out()));
  if (connection_ == nullptr) {
    error.Throw("cannot connect to the bus");
  }
  g_dbus_connection_set_exit_on_close(connection_.get(), FALSE);
}

BusConnection::~BusConnection() {
  for (const guint object : objects_) {
    g_dbus_connection_unregister_object(connection_.get(), object);
  }
  g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

BusConnection::Object BusConnection::Offer(const std::string& xml, Handler handler) {
  Error error;
  const Owner<GDBusNodeInfo> node(g_dbus_node_info_new_for_xml(xml.c_str(), error.Out()));
  if (node == nullptr) {
    error.Throw("the description of a service");
  }
  const char* const name = node->interfaces[0]->name;
  handlers_.push_back(std::make_unique<Handler>(std::move(handler)));
  constexpr GDBusInterfaceVTable kCalls = {.method_call = OnCall};
  objects_.push_back(g_dbus_connection_register_object(connection_.get(),
                                                       node->path,
                                                       node->interfaces[0],
                                                       &kCalls,
                                                       handlers_.back().get(),
                                                       nullptr,
                                                       error.Out()));
  if (objects_.back() == 0) {
    error.Throw(name);
  }
  if (AskDaemon("RequestName", g_variant_new("(su)", name, kDoNotQueue)) != kOwnerNow) {
    throw std::runtime_error(std::string(name) + " has an owner already");
  }
  return {.path = node->path, .interface = name};
}

std::uint32_t BusConnection::AskDaemon(const char* method, GVariant* arguments) {
  constexpr int kDefaultTimeout = -1;
  Error error;
  const Owner<GVariant> reply(g_dbus_connection_call_sync(connection_.get(),
                                                          kDaemonName,
                                                          kDaemonPath,
                                                          kDaemonName,
                                                          method,
                                                          arguments,
                                                          G_VARIANT_TYPE("(u)"),
                                                          G_DBUS_CALL_FLAGS_NONE,
                                                          kDefaultTimeout,
                                                          nullptr,
                                                          error.Out()));
  if (reply == nullptr) {
    error.Throw(method);
  }
  guint32 number = 0;
  g_variant_get(reply.get(), "(u)", &number);
  return number;
}

}  // namespace orvane
