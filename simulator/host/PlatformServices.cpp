#include "simulator/host/PlatformServices.h"

#include <gio/gio.h>
#include <signal.h>

#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/host/ServiceInterfaces.h"

namespace orvane {

namespace {

constexpr const char* kDaemonName = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";
constexpr guint32 kOwnerNow = 1;  // what RequestName answers on success

struct Unref {
  void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
  void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
  void operator()(GVariant* value) const { g_variant_unref(value); }
};
template <typename T>
using Owner = std::unique_ptr<T, Unref>;

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

/// A call to the bus daemon itself. It must not take the main loop: the caller is in it.
Owner<GVariant> CallDaemon(GDBusConnection* connection,
                           const char* method,
                           GVariant* arguments,
                           const char* replyType,
                           Error& error) {
  return Owner<GVariant>(g_dbus_connection_call_sync(connection,
                                                     kDaemonName,
                                                     kDaemonPath,
                                                     kDaemonName,
                                                     method,
                                                     arguments,
                                                     G_VARIANT_TYPE(replyType),
                                                     G_DBUS_CALL_FLAGS_NONE,
                                                     -1,
                                                     nullptr,
                                                     error.Out()));
}

void KillCaller(GDBusConnection* connection, const char* sender) {
  Error error;
  const Owner<GVariant> reply = CallDaemon(
      connection, "GetConnectionUnixProcessID", g_variant_new("(s)", sender), "(u)", error);
  if (reply != nullptr) {
    guint32 pid = 0;
    g_variant_get(reply.get(), "(u)", &pid);
    ::kill(static_cast<pid_t>(pid), SIGKILL);
  }
}

GVariant* NumbersReply(const std::vector<int>& numbers) {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("ai"));
  for (const int number : numbers) {
    g_variant_builder_add(&builder, "i", number);
  }
  return g_variant_new("(ai)", &builder);
}

}  // namespace

struct PlatformServices::State {
  Instrument& instrument;
  std::function<void()> beforeEvent;
  Owner<GDBusConnection> connection;

  void Offer(const char* xml);
  void Serve(const char* sender,
             std::string_view method,
             GVariant* arguments,
             GDBusMethodInvocation* invocation);

  static void OnCall(GDBusConnection* /*connection*/,
                     const char* sender,
                     const char* /*path*/,
                     const char* /*interface*/,
                     const char* method,
                     GVariant* arguments,
                     GDBusMethodInvocation* invocation,
                     void* self) {
    static_cast<State*>(self)->Serve(sender, method, arguments, invocation);
  }
};

/// Registers the object that `xml` describes, and takes the bus name of its interface.
void PlatformServices::State::Offer(const char* xml) {
  Error error;
  const Owner<GDBusNodeInfo> node(g_dbus_node_info_new_for_xml(xml, error.Out()));
  if (node == nullptr) {
    error.Throw("the description of a service");
  }
  const char* const name = node->interfaces[0]->name;
  constexpr GDBusInterfaceVTable kCalls = {.method_call = OnCall};
  if (g_dbus_connection_register_object(
          connection.get(), node->path, node->interfaces[0], &kCalls, this, nullptr, error.Out()) ==
      0) {
    error.Throw(name);
  }
  const Owner<GVariant> reply =
      CallDaemon(connection.get(), "RequestName", g_variant_new("(su)", name, 0U), "(u)", error);
  guint32 result = 0;
  if (reply != nullptr) {
    g_variant_get(reply.get(), "(u)", &result);
  }
  if (result != kOwnerNow) {
    error.Throw(name);
  }
}

void PlatformServices::State::Serve(const char* sender,
                                    std::string_view method,
                                    GVariant* arguments,
                                    GDBusMethodInvocation* invocation) {
  beforeEvent();
  DBusResult result;
  GVariant* reply = nullptr;
  if (method == "GetModuleLocations") {
    result = instrument.GetModuleLocations();
    reply = NumbersReply(result.numbers);
  } else {
    guint32 slot = 0;
    g_variant_get(arguments, "(u)", &slot);
    result = method == "GetI2CBus" ? instrument.GetI2CBus(slot) : instrument.GetSPIDev(slot);
    reply = g_variant_new("(s)", result.text.c_str());
  }
  const Owner<GVariant> owned(g_variant_ref_sink(reply));
  if (result.killed) {
    KillCaller(connection.get(), sender);
    g_object_unref(invocation);  // nobody waits for it
  } else if (!result.error.empty()) {
    g_dbus_method_invocation_return_dbus_error(
        invocation, result.error.c_str(), "The instrument was told to fail here");
  } else {
    g_dbus_method_invocation_return_value(invocation, owned.get());
  }
}

PlatformServices::PlatformServices(const std::string& busAddress,
                                   Wanted wanted,
                                   Instrument& instrument,
                                   std::function<void()> beforeEvent)
    : state_(std::make_unique<State>(State{instrument, std::move(beforeEvent), nullptr})) {
  Error error;
  state_->connection.reset(g_dbus_connection_new_for_address_sync(
      busAddress.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr,
      nullptr,
      error.Out()));
  if (state_->connection == nullptr) {
    error.Throw("cannot connect to the private bus");
  }
  g_dbus_connection_set_exit_on_close(state_->connection.get(), FALSE);
  if (wanted.inventory) {
    state_->Offer(kSystemInventoryXml);
  }
  if (wanted.resources) {
    state_->Offer(kModuleResourcesXml);
  }
}

PlatformServices::~PlatformServices() {
  g_dbus_connection_close_sync(state_->connection.get(), nullptr, nullptr);
}

}  // namespace orvane
