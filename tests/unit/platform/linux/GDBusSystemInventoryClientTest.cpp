#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/GDBusSystemInventoryClient.h"
#include "tests/doubles/BusService.h"
#include "tests/doubles/EnvironmentVariable.h"
#include "tests/doubles/PrivateSystemBus.h"

namespace {

using Answer = BusService::Answer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// @return the text of the std::runtime_error that asking throws
std::string ErrorOf(GDBusSystemInventoryClient& client) {
  try {
    static_cast<void>(client.GetModuleLocations());
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

class GDBusSystemInventoryClientTest : public testing::Test {
 protected:
  /// Starts a service that gives `answer`.
  BusService& Serve(const Answer& answer) {
    service_ =
        std::make_unique<BusService>(bus_.Address(),
                                     INTROSPECTION_FOLDER "/org.orvane.SystemInventory1.xml",
                                     "org.orvane.SystemInventory1",
                                     "/org/orvane/SystemInventory1",
                                     std::map<std::string, Answer>{{"GetModuleLocations", answer}});
    return *service_;
  }

  PrivateSystemBus bus_;
  std::unique_ptr<BusService> service_;
};

TEST_F(GDBusSystemInventoryClientTest, LocationsComeInTheServicesOrder) {
  BusService& service = Serve(Answer::Reply("([4, 1, 7, 2, 1],)"));
  GDBusSystemInventoryClient client;
  EXPECT_THAT(client.GetModuleLocations(), ElementsAre(4, 1, 7, 2, 1));
  EXPECT_THAT(service.Calls(), ElementsAre("GetModuleLocations()"));
}

TEST_F(GDBusSystemInventoryClientTest, NoModuleGivesAnEmptySequence) {
  Serve(Answer::Reply("(@ai [],)"));
  GDBusSystemInventoryClient client;
  EXPECT_THAT(client.GetModuleLocations(), IsEmpty());
}

TEST_F(GDBusSystemInventoryClientTest, LocationsAreSigned32BitNumbers) {
  Serve(Answer::Reply("([-1, 0, 2147483647, -2147483648],)"));
  GDBusSystemInventoryClient client;
  EXPECT_THAT(client.GetModuleLocations(), ElementsAre(-1, 0, 2147483647, -2147483647 - 1));
}

TEST_F(GDBusSystemInventoryClientTest, EveryQueryAsksTheServiceAgain) {
  BusService& service = Serve(Answer::Reply("([1],)"));
  GDBusSystemInventoryClient client;
  EXPECT_THAT(client.GetModuleLocations(), ElementsAre(1));
  service.SetAnswer("GetModuleLocations", Answer::Reply("([2, 3],)"));
  EXPECT_THAT(client.GetModuleLocations(), ElementsAre(2, 3));
  EXPECT_THAT(service.Calls(), ElementsAre("GetModuleLocations()", "GetModuleLocations()"));
}

TEST_F(GDBusSystemInventoryClientTest, ConstructionAndDestructionCallNoMethod) {
  BusService& service = Serve(Answer::Reply("([1],)"));
  { const GDBusSystemInventoryClient client; }
  EXPECT_THAT(service.Calls(), IsEmpty());
}

TEST_F(GDBusSystemInventoryClientTest, TwoClientsWorkAtOnce) {
  BusService& service = Serve(Answer::Reply("([1, 2],)"));
  GDBusSystemInventoryClient first;
  GDBusSystemInventoryClient second;
  EXPECT_THAT(first.GetModuleLocations(), ElementsAre(1, 2));
  EXPECT_THAT(second.GetModuleLocations(), ElementsAre(1, 2));
  EXPECT_THAT(first.GetModuleLocations(), ElementsAre(1, 2));
  EXPECT_EQ(service.Calls().size(), 3U);
}

TEST_F(GDBusSystemInventoryClientTest, MissingServiceThrowsTheMethodAndTheBusError) {
  GDBusSystemInventoryClient client;
  EXPECT_THAT(ErrorOf(client),
              StartsWith("GetModuleLocations: org.freedesktop.DBus.Error.ServiceUnknown: "));
}

TEST_F(GDBusSystemInventoryClientTest, ClientOutlivesAMissingService) {
  GDBusSystemInventoryClient client;
  EXPECT_NE(ErrorOf(client), "no error");
  Serve(Answer::Reply("([5],)"));
  EXPECT_THAT(client.GetModuleLocations(), ElementsAre(5));
}

TEST_F(GDBusSystemInventoryClientTest, ErrorReplyThrowsItsNameAndMessage) {
  Serve(Answer::Error("org.orvane.Error.Busy", "the inventory is being taken"));
  GDBusSystemInventoryClient client;
  EXPECT_EQ(ErrorOf(client),
            "GetModuleLocations: org.orvane.Error.Busy: the inventory is being taken");
}

TEST_F(GDBusSystemInventoryClientTest, ErrorReplyWithoutAMessageThrowsItsName) {
  BusService& service = Serve(Answer::BareError("org.orvane.Error.Busy"));
  GDBusSystemInventoryClient client;
  EXPECT_EQ(ErrorOf(client), "GetModuleLocations: org.orvane.Error.Busy");
  service.SetAnswer("GetModuleLocations", Answer::Error("org.orvane.Error.Busy", ""));
  EXPECT_EQ(ErrorOf(client), "GetModuleLocations: org.orvane.Error.Busy");
}

TEST_F(GDBusSystemInventoryClientTest, ReplyOfAnotherTypeThrows) {
  BusService& service = Serve(Answer::UncheckedReply("(@au [1, 2],)"));
  GDBusSystemInventoryClient client;
  EXPECT_EQ(ErrorOf(client),
            "GetModuleLocations: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"au\", not \"ai\"");
  service.SetAnswer("GetModuleLocations", Answer::UncheckedReply("(1,)"));
  EXPECT_EQ(ErrorOf(client),
            "GetModuleLocations: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"i\", not \"ai\"");
  service.SetAnswer("GetModuleLocations", Answer::UncheckedReply("([1, 2], 'more')"));
  EXPECT_EQ(ErrorOf(client),
            "GetModuleLocations: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"ais\", not \"ai\"");
  service.SetAnswer("GetModuleLocations", Answer::UncheckedReply("()"));
  EXPECT_EQ(ErrorOf(client),
            "GetModuleLocations: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"\", not \"ai\"");
}

TEST_F(GDBusSystemInventoryClientTest, ClientWorksOnAfterAnError) {
  BusService& service = Serve(Answer::UncheckedReply("('text',)"));
  GDBusSystemInventoryClient client;
  EXPECT_NE(ErrorOf(client), "no error");
  service.SetAnswer("GetModuleLocations", Answer::Error("org.orvane.Error.Busy", "later"));
  EXPECT_NE(ErrorOf(client), "no error");
  service.SetAnswer("GetModuleLocations", Answer::Reply("([6],)"));
  EXPECT_THAT(client.GetModuleLocations(), ElementsAre(6));
}

TEST_F(GDBusSystemInventoryClientTest, BusThatEndsBeforeTheFirstQueryThrowsTheMethod) {
  GDBusSystemInventoryClient client;
  bus_.Stop();
  EXPECT_THAT(ErrorOf(client), StartsWith("GetModuleLocations: System.Error."));
}

TEST_F(GDBusSystemInventoryClientTest, BusThatEndsBetweenQueriesThrowsTheMethod) {
  GDBusSystemInventoryClient client;
  EXPECT_THAT(ErrorOf(client), HasSubstr("ServiceUnknown"));  // the bus answered
  bus_.Stop();
  EXPECT_EQ(ErrorOf(client),
            "GetModuleLocations: org.freedesktop.DBus.Error.Disconnected: "
            "Connection reset by peer");
}

TEST(GDBusSystemInventoryClientBusTest, UnreachableBusThrowsTheServiceAndTheSystemsText) {
  const EnvironmentVariable nowhere("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
  try {
    const GDBusSystemInventoryClient client;
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "org.orvane.SystemInventory1: No such file or directory");
  }
}

}  // namespace
