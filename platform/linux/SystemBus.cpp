#include "platform/linux/SystemBus.h"

#include <stdexcept>
#include <system_error>

namespace {

class BusError {
 public:
  BusError() = default;
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;
  ~BusError() { sd_bus_error_free(&error_); }

  sd_bus_error* Get() { return &error_; }

  /// @param result  what sd-bus returned, a negative errno
  [[nodiscard]] std::string Text(int result) const {
    if (sd_bus_error_is_set(&error_) == 0) {
      return std::generic_category().message(-result);
    }
    std::string text = error_.name;
    if (error_.message != nullptr && *error_.message != '\0') {
      text.append(": ").append(error_.message);
    }
    return text;
  }

 private:
  sd_bus_error error_{};
};

[[noreturn]] void Fail(const std::string& subject, const std::string& error) {
  throw std::runtime_error(subject + ": " + error);
}

/// Throws when a step of reading a reply has failed.
/// @param result  what sd-bus returned; negative: an errno
void Check(const char* method, int result) {
  if (result < 0) {
    Fail(method, std::generic_category().message(-result));
  }
}

}  // namespace

void SystemBus::ReleaseBus::operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }

void SystemBus::ReleaseMessage::operator()(sd_bus_message* message) const {
  sd_bus_message_unref(message);
}

SystemBus::SystemBus(const char* service, const char* path) : service_(service), path_(path) {
  sd_bus* bus = nullptr;
  const int result = sd_bus_open_system(&bus);
  if (result < 0) {
    Fail(service_, std::generic_category().message(-result));
  }
  bus_.reset(bus);
}

template <typename... Arguments>
SystemBus::Message SystemBus::Call(const char* method,
                                   const char* replyType,
                                   const char* argumentTypes,
                                   Arguments... arguments) {
  BusError error;
  sd_bus_message* answer = nullptr;
  const int result = sd_bus_call_method(bus_.get(),
                                        service_,
                                        path_,
                                        service_,
                                        method,
                                        error.Get(),
                                        &answer,
                                        argumentTypes,
                                        arguments...);
  Message reply(answer);
  if (result < 0) {
    Fail(method, error.Text(result));
  }
  if (sd_bus_message_has_signature(answer, replyType) == 0) {
    Fail(method,
         std::string(SD_BUS_ERROR_INVALID_SIGNATURE) + ": reply of type \"" +
             sd_bus_message_get_signature(answer, 1) + "\", not \"" + replyType + "\"");
  }
  return reply;
}

std::vector<int> SystemBus::CallForNumbers(const char* method) {
  const Message reply = Call(method, "ai", "");
  Check(method, sd_bus_message_enter_container(reply.get(), SD_BUS_TYPE_ARRAY, "i"));
  std::vector<int> numbers;
  for (;;) {
    std::int32_t number = 0;
    const int result = sd_bus_message_read_basic(reply.get(), SD_BUS_TYPE_INT32, &number);
    Check(method, result);
    if (result == 0) {  // end of the array
      return numbers;
    }
    numbers.push_back(number);
  }
}

std::string SystemBus::CallForText(const char* method, std::uint32_t argument) {
  const Message reply = Call(method, "s", "u", argument);
  const char* text = nullptr;  // lives in the reply
  Check(method, sd_bus_message_read_basic(reply.get(), SD_BUS_TYPE_STRING, &text));
  return text;
}
