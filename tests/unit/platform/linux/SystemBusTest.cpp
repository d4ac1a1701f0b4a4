#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include "platform/linux/SystemBus.h"

namespace {

// What sd-bus returns; no service gives this answer.
int callResult = 0;
int readResult = 0;

}  // namespace

extern "C" {
int WrapOpen(sd_bus** bus) __asm__("__wrap_sd_bus_open_system");
int WrapCall(sd_bus* bus,
             const char* destination,
             const char* path,
             const char* interface,
             const char* member,
             sd_bus_error* error,
             sd_bus_message** reply,
             const char* types,
             ...) __asm__("__wrap_sd_bus_call_method");
int WrapHasSignature(sd_bus_message* message,
                     const char* signature) __asm__("__wrap_sd_bus_message_has_signature");
int WrapReadBasic(sd_bus_message* message,
                  char type,
                  void* value) __asm__("__wrap_sd_bus_message_read_basic");

int WrapOpen(sd_bus** bus) {
  *bus = nullptr;
  return 0;
}

int WrapCall(sd_bus* /*bus*/,
             const char* /*destination*/,
             const char* /*path*/,
             const char* /*interface*/,
             const char* /*member*/,
             sd_bus_error* /*error*/,
             sd_bus_message** reply,
             const char* /*types*/,
             ...) {
  *reply = nullptr;
  return callResult;
}

int WrapHasSignature(sd_bus_message* /*message*/, const char* /*signature*/) { return 1; }

int WrapReadBasic(sd_bus_message* /*message*/, char /*type*/, void* /*value*/) {
  return readResult;
}
}

namespace {

/// @return the text of the std::runtime_error that a call throws
std::string ErrorOfACall() {
  SystemBus bus("org.orvane.Test1", "/org/orvane/Test1");
  try {
    return "no error but: " + bus.CallForText("GetName", 4);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

TEST(SystemBusTest, FailureWithoutANameIsToldInTheSystemsWords) {
  callResult = -ENOTCONN;
  EXPECT_EQ(ErrorOfACall(), "GetName: Transport endpoint is not connected");
}

TEST(SystemBusTest, ReplyThatCannotBeReadIsAFailure) {
  callResult = 1;
  readResult = -EBADMSG;
  EXPECT_EQ(ErrorOfACall(), "GetName: Bad message");
}

}  // namespace
