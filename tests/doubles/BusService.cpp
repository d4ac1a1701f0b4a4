#include "tests/doubles/BusService.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace {

struct Release {
  void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
  void operator()(GDBusMessage* message) const { g_object_unref(message); }
  void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(GVariant* value) const { g_variant_unref(value); }
  void operator()(char* text) const { g_free(text); }
};
template <typename Thing>
using Owned = std::unique_ptr<Thing, Release>;

/// @param error  taken over; null when nothing went wrong
void Check(GError* error) {
  const Owned<GError> owned(error);
  if (owned) {
    throw std::runtime_error(owned->message);
  }
}

Owned<GVariant> Parse(const std::string& text) {
  GError* error = nullptr;
  Owned<GVariant> value(g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, &error));
  Check(error);
  return value;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error("cannot open " + path);
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

void OwnName(GDBusConnection* connection, const std::string& name) {
  constexpr unsigned kDoNotQueue = 4;
  constexpr unsigned kPrimaryOwner = 1;
  constexpr int kDefaultTimeout = -1;
  GError* error = nullptr;
  const Owned<GVariant> reply(
      g_dbus_connection_call_sync(connection,
                                  "org.freedesktop.DBus",
                                  "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus",
                                  "RequestName",
                                  g_variant_new("(su)", name.c_str(), kDoNotQueue),
                                  G_VARIANT_TYPE("(u)"),
                                  G_DBUS_CALL_FLAGS_NONE,
                                  kDefaultTimeout,
                                  nullptr,
                                  &error));
  Check(error);
  unsigned result = 0;
  g_variant_get(reply.get(), "(u)", &result);
  if (result != kPrimaryOwner) {
    throw std::runtime_error(name + " has an owner already");
  }
}

/// @return the type that the introspection file gives the reply, "(s)"
std::string ReplyType(GDBusMethodInvocation* invocation) {
  const GDBusMethodInfo* method = g_dbus_method_invocation_get_method_info(invocation);
  std::string type;
  for (GDBusArgInfo** argument = method->out_args; *argument != nullptr; ++argument) {
    type += (*argument)->signature;
  }
  return "(" + type + ")";
}

}  // namespace

BusService::BusService(const std::string& address,
                       const std::string& file,
                       const std::string& interface,
                       const std::string& path,
                       const std::map<std::string, Answer>& answers)
    : address_(address),
      file_(file),
      interface_(interface),
      path_(path),
      answers_(answers),
      context_(g_main_context_new()) {
  std::promise<std::string> ready;
  std::future<std::string> problem = ready.get_future();
  thread_ = std::thread([this, &ready] { Serve(ready); });
  EXPECT_EQ(problem.get(), "");
}

BusService::~BusService() {
  stop_ = true;
  g_main_context_wakeup(context_);
  thread_.join();
  g_main_context_unref(context_);
}

std::vector<std::string> BusService::Calls() {
  const std::lock_guard lock(mutex_);
  return calls_;
}

void BusService::SetAnswer(const std::string& method, const Answer& answer) {
  const std::lock_guard lock(mutex_);
  answers_.insert_or_assign(method, answer);
}

void BusService::Serve(std::promise<std::string>& ready) {
  g_main_context_push_thread_default(context_);
  try {
    GError* error = nullptr;
    const Owned<GDBusNodeInfo> node(g_dbus_node_info_new_for_xml(ReadFile(file_).c_str(), &error));
    Check(error);
    GDBusInterfaceInfo* interface =
        g_dbus_node_info_lookup_interface(node.get(), interface_.c_str());
    if (interface == nullptr || path_ != node->path) {
      throw std::runtime_error(file_ + " describes another interface or object");
    }
    const Owned<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        address_.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr,
        nullptr,
        &error));
    Check(error);
    const GDBusInterfaceVTable table{OnCall, nullptr, nullptr, {}};
    const unsigned object = g_dbus_connection_register_object(
        connection.get(), path_.c_str(), interface, &table, this, nullptr, &error);
    Check(error);
    OwnName(connection.get(), interface_);

    ready.set_value("");
    while (!stop_) {
      g_main_context_iteration(context_, TRUE);
    }
    g_dbus_connection_unregister_object(connection.get(), object);
    g_dbus_connection_close_sync(connection.get(), nullptr, nullptr);
  } catch (const std::runtime_error& error) {
    ready.set_value(error.what());
  }
  while (g_main_context_iteration(context_, FALSE) != FALSE) {  // what closing left to release
  }
  g_main_context_pop_thread_default(context_);
}

void BusService::OnCall(GDBusConnection* connection,
                        const char* /*sender*/,
                        const char* /*path*/,
                        const char* /*interface*/,
                        const char* method,
                        GVariant* arguments,
                        GDBusMethodInvocation* invocation,
                        gpointer self) {
  auto* service = static_cast<BusService*>(self);
  Answer answer =
      Answer::Error("org.freedesktop.DBus.Error.Failed", "no answer was given for this call");
  {
    const Owned<char> text(g_variant_print(arguments, TRUE));
    const std::lock_guard lock(service->mutex_);
    service->calls_.push_back(std::string(method) + text.get());
    if (const auto given = service->answers_.find(method); given != service->answers_.end()) {
      answer = given->second;
    } else {
      ADD_FAILURE() << "unexpected call: " << service->calls_.back();
    }
  }
  answer.Send(connection, invocation);
}

void BusService::Answer::Send(GDBusConnection* connection,
                              GDBusMethodInvocation* invocation) const {
  switch (kind_) {
    case Kind::kReply: {
      const Owned<GVariant> reply = Parse(text_);
      EXPECT_EQ(g_variant_get_type_string(reply.get()), ReplyType(invocation));
      g_dbus_method_invocation_return_value(invocation, reply.get());
      return;
    }
    case Kind::kError:
      g_dbus_method_invocation_return_dbus_error(invocation, errorName_.c_str(), text_.c_str());
      return;
    case Kind::kUncheckedReply:
    case Kind::kBareError:
      break;
  }
  // What GDBus does not send for a service by itself.
  const Owned<GDBusMessage> message(
      g_dbus_message_new_method_reply(g_dbus_method_invocation_get_message(invocation)));
  if (kind_ == Kind::kUncheckedReply) {
    g_dbus_message_set_body(message.get(), Parse(text_).get());
  } else {
    g_dbus_message_set_message_type(message.get(), G_DBUS_MESSAGE_TYPE_ERROR);
    g_dbus_message_set_error_name(message.get(), errorName_.c_str());
  }
  g_dbus_connection_send_message(
      connection, message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
  g_object_unref(invocation);
}
