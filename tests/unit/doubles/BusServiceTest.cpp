#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/doubles/BusService.h"
#include "tests/doubles/PrivateSystemBus.h"

namespace {

const std::string kFile = INTROSPECTION_FOLDER "/org.orvane.SystemInventory1.xml";
const std::string kInterface = "org.orvane.SystemInventory1";
const std::string kPath = "/org/orvane/SystemInventory1";

class BusServiceTest : public testing::Test {
 protected:
  void Serve(const std::string& file, const std::string& interface, const std::string& path) {
    const BusService service(bus_.Address(), file, interface, path, {});
  }

  PrivateSystemBus bus_;
};

TEST_F(BusServiceTest, ServesWhatItsFileDescribes) { Serve(kFile, kInterface, kPath); }

TEST_F(BusServiceTest, NameIsFreeAgainWhenTheServiceHasEnded) {
  Serve(kFile, kInterface, kPath);
  Serve(kFile, kInterface, kPath);
}

TEST_F(BusServiceTest, AnotherInterfaceFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(Serve(kFile, "org.orvane.Other1", kPath),
                          "describes another interface or object");
}

TEST_F(BusServiceTest, AnotherObjectFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(Serve(kFile, kInterface, "/org/orvane/Other1"),
                          "describes another interface or object");
}

TEST_F(BusServiceTest, MissingFileFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(Serve("none.xml", kInterface, kPath), "cannot open none.xml");
}

TEST_F(BusServiceTest, NameThatIsTakenFailsTheTest) {
  const BusService first(bus_.Address(), kFile, kInterface, kPath, {});
  EXPECT_NONFATAL_FAILURE(Serve(kFile, kInterface, kPath),
                          "org.orvane.SystemInventory1 has an owner already");
}

TEST_F(BusServiceTest, BusThatIsGoneFailsTheTest) {
  bus_.Stop();
  EXPECT_NONFATAL_FAILURE(Serve(kFile, kInterface, kPath), "cannot connect to the bus");
}

}  // namespace
