#include "tests/doubles/BusService.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "simulator/bus/BusConnection.h"

namespace {

struct Release {
  void operator()(GDBusMessage* message) const { g_object_unref(message); }
  void operator()(GVariant* value) const { g_variant_unref(value); }
  void operator()(char* text) const { g_free(text); }
};
template <typename Thing>
using Owned = std::unique_ptr<Thing, Release>;

Owned<GVariant> Parse(const std::string& text) {
  GError* error = nullptr;
  Owned<GVariant> value(g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, &error));
  if (error != nullptr) {
    ADD_FAILURE() << text << ": " << error->message;
    g_clear_error(&error);
  }
  return value;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    throw std::runtime_error("cannot open " + path);
  }
  return {std::istreambuf_iterator<char>(file), {}};
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
    orvane::BusConnection bus(address_);
    const orvane::BusConnection::Object object =
        bus.Offer(ReadFile(file_), [this](GDBusMethodInvocation* call) { Answered(call); });
    if (object.interface != interface_ || object.path != path_) {
      throw std::runtime_error(file_ + " describes another interface or object");
    }

    ready.set_value("");
    while (!stop_) {
      g_main_context_iteration(context_, TRUE);
    }
  } catch (const std::runtime_error& error) {
    ready.set_value(error.what());
  }
  while (g_main_context_iteration(context_, FALSE) != FALSE) {  // what is left after closing
  }
  g_main_context_pop_thread_default(context_);
}

void BusService::Answered(GDBusMethodInvocation* invocation) {
  const std::string method = g_dbus_method_invocation_get_method_name(invocation);
  Answer answer =
      Answer::Error("org.freedesktop.DBus.Error.Failed", "no answer was given for this call");
  {
    const Owned<char> text(
        g_variant_print(g_dbus_method_invocation_get_parameters(invocation), TRUE));
    const std::lock_guard lock(mutex_);
    calls_.push_back(method + text.get());
    if (const auto given = answers_.find(method); given != answers_.end()) {
      answer = given->second;
    } else {
      ADD_FAILURE() << "unexpected call: " << calls_.back();
    }
  }
  answer.Send(invocation);
}

void BusService::Answer::Send(GDBusMethodInvocation* invocation) const {
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
  g_dbus_connection_send_message(g_dbus_method_invocation_get_connection(invocation),
                                 message.get(),
                                 G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                 nullptr,
                                 nullptr);
  g_object_unref(invocation);
}
