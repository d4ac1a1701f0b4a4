#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/GDBusModuleResourcesClient.h"
#include "tests/doubles/BusService.h"
#include "tests/doubles/EnvironmentVariable.h"
#include "tests/doubles/PrivateSystemBus.h"

namespace {

using Answer = BusService::Answer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// @return the text of the std::runtime_error that the query throws
std::string ErrorOf(GDBusModuleResourcesClient& client,
                    std::string (GDBusModuleResourcesClient::*query)()) {
  try {
    static_cast<void>((client.*query)());
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

std::string ErrorOfI2C(GDBusModuleResourcesClient& client) {
  return ErrorOf(client, &GDBusModuleResourcesClient::GetI2CBus);
}

std::string ErrorOfSPI(GDBusModuleResourcesClient& client) {
  return ErrorOf(client, &GDBusModuleResourcesClient::GetSPIDev);
}

class GDBusModuleResourcesClientTest : public testing::Test {
 protected:
  /// Starts a service that gives these two answers.
  BusService& Serve(const Answer& i2cBus, const Answer& spiDev) {
    service_ = std::make_unique<BusService>(
        bus_.Address(),
        INTROSPECTION_FOLDER "/org.orvane.ModuleResources1.xml",
        "org.orvane.ModuleResources1",
        "/org/orvane/ModuleResources1",
        std::map<std::string, Answer>{{"GetI2CBus", i2cBus}, {"GetSPIDev", spiDev}});
    return *service_;
  }

  BusService& Serve() {
    return Serve(Answer::Reply("('i2c-12',)"), Answer::Reply("('spidev3.1',)"));
  }

  PrivateSystemBus bus_;
  std::unique_ptr<BusService> service_;
};

TEST_F(GDBusModuleResourcesClientTest, EachQueryReturnsItsOwnName) {
  BusService& service = Serve();
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(4);
  EXPECT_EQ(client.GetI2CBus(), "i2c-12");
  EXPECT_EQ(client.GetSPIDev(), "spidev3.1");
  EXPECT_THAT(service.Calls(), ElementsAre("GetI2CBus(uint32 4,)", "GetSPIDev(uint32 4,)"));
}

TEST_F(GDBusModuleResourcesClientTest, EmptyNamesComeBackEmpty) {
  Serve(Answer::Reply("('',)"), Answer::Reply("('',)"));
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(4);
  EXPECT_EQ(client.GetI2CBus(), "");
  EXPECT_EQ(client.GetSPIDev(), "");
}

TEST_F(GDBusModuleResourcesClientTest, NamesComeBackUnchanged) {
  Serve(Answer::Reply("(' ../i2c 1\\n',)"), Answer::Reply("('/dev/\u00e9',)"));
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(4);
  EXPECT_EQ(client.GetI2CBus(), " ../i2c 1\n");
  EXPECT_EQ(client.GetSPIDev(), "/dev/\xc3\xa9");
}

TEST_F(GDBusModuleResourcesClientTest, LargestModuleNumberTravelsUnsigned) {
  BusService& service = Serve();
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(4294967295U);
  static_cast<void>(client.GetI2CBus());
  static_cast<void>(client.GetSPIDev());
  EXPECT_THAT(service.Calls(),
              ElementsAre("GetI2CBus(uint32 4294967295,)", "GetSPIDev(uint32 4294967295,)"));
}

TEST_F(GDBusModuleResourcesClientTest, ConstructionSelectionAndDestructionCallNoMethod) {
  BusService& service = Serve();
  {
    GDBusModuleResourcesClient client;
    client.SetupDeviceAddress(4);
  }
  EXPECT_THAT(service.Calls(), IsEmpty());
}

TEST_F(GDBusModuleResourcesClientTest, SelectionHoldsUntilTheNextOne) {
  BusService& service = Serve();
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(1);
  static_cast<void>(client.GetI2CBus());
  static_cast<void>(client.GetI2CBus());
  client.SetupDeviceAddress(2);
  client.SetupDeviceAddress(5);
  static_cast<void>(client.GetSPIDev());
  EXPECT_THAT(service.Calls(),
              ElementsAre("GetI2CBus(uint32 1,)", "GetI2CBus(uint32 1,)", "GetSPIDev(uint32 5,)"));
}

TEST_F(GDBusModuleResourcesClientTest, SelectionBelongsToTheClientNotToTheService) {
  BusService& service = Serve();
  GDBusModuleResourcesClient first;
  GDBusModuleResourcesClient second;
  first.SetupDeviceAddress(4);
  second.SetupDeviceAddress(5);
  EXPECT_EQ(first.GetI2CBus(), "i2c-12");
  EXPECT_EQ(second.GetI2CBus(), "i2c-12");
  EXPECT_EQ(first.GetSPIDev(), "spidev3.1");
  EXPECT_THAT(service.Calls(),
              ElementsAre("GetI2CBus(uint32 4,)", "GetI2CBus(uint32 5,)", "GetSPIDev(uint32 4,)"));
}

TEST_F(GDBusModuleResourcesClientTest, MissingServiceThrowsTheMethodAndTheBusError) {
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(4);
  EXPECT_THAT(ErrorOfI2C(client),
              StartsWith("GetI2CBus: org.freedesktop.DBus.Error.ServiceUnknown: "));
  EXPECT_THAT(ErrorOfSPI(client),
              StartsWith("GetSPIDev: org.freedesktop.DBus.Error.ServiceUnknown: "));
}

TEST_F(GDBusModuleResourcesClientTest, ErrorReplyThrowsItsNameAndMessage) {
  Serve(Answer::Error("org.orvane.Error.NoModule", "slot 4 is empty"),
        Answer::Error("org.freedesktop.DBus.Error.AccessDenied", "not for you"));
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(4);
  EXPECT_EQ(ErrorOfI2C(client), "GetI2CBus: org.orvane.Error.NoModule: slot 4 is empty");
  EXPECT_EQ(ErrorOfSPI(client), "GetSPIDev: org.freedesktop.DBus.Error.AccessDenied: not for you");
}

TEST_F(GDBusModuleResourcesClientTest, ReplyOfAnotherTypeThrows) {
  BusService& service = Serve(Answer::UncheckedReply("(uint32 1,)"),
                              Answer::UncheckedReply("(objectpath '/spidev3',)"));
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(4);
  EXPECT_EQ(ErrorOfI2C(client),
            "GetI2CBus: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"u\", not \"s\"");
  EXPECT_EQ(ErrorOfSPI(client),
            "GetSPIDev: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"o\", not \"s\"");
  service.SetAnswer("GetI2CBus", Answer::UncheckedReply("(['i2c-1'],)"));
  EXPECT_EQ(ErrorOfI2C(client),
            "GetI2CBus: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"as\", not \"s\"");
  service.SetAnswer("GetI2CBus", Answer::UncheckedReply("('i2c-1', 'i2c-2')"));
  EXPECT_EQ(ErrorOfI2C(client),
            "GetI2CBus: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"ss\", not \"s\"");
  service.SetAnswer("GetI2CBus", Answer::UncheckedReply("()"));
  EXPECT_EQ(ErrorOfI2C(client),
            "GetI2CBus: org.freedesktop.DBus.Error.InvalidSignature: "
            "reply of type \"\", not \"s\"");
}

TEST_F(GDBusModuleResourcesClientTest, ClientWorksOnAfterAnError) {
  Serve(Answer::Error("org.orvane.Error.NoModule", "no bus"), Answer::Reply("('spidev3.1',)"));
  GDBusModuleResourcesClient client;
  client.SetupDeviceAddress(4);
  EXPECT_EQ(ErrorOfI2C(client), "GetI2CBus: org.orvane.Error.NoModule: no bus");
  EXPECT_EQ(client.GetSPIDev(), "spidev3.1");
}

TEST_F(GDBusModuleResourcesClientTest, BusThatEndsBetweenQueriesThrowsTheMethod) {
  GDBusModuleResourcesClient client;
  EXPECT_THAT(ErrorOfI2C(client), HasSubstr("ServiceUnknown"));  // the bus answered
  bus_.Stop();
  EXPECT_EQ(ErrorOfI2C(client),
            "GetI2CBus: org.freedesktop.DBus.Error.Disconnected: Connection reset by peer");
  EXPECT_THAT(ErrorOfSPI(client), StartsWith("GetSPIDev: System.Error."));
}

TEST(GDBusModuleResourcesClientBusTest, UnreachableBusThrowsTheServiceAndTheSystemsText) {
  const EnvironmentVariable nowhere("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
  try {
    const GDBusModuleResourcesClient client;
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "org.orvane.ModuleResources1: No such file or directory");
  }
}

}  // namespace
