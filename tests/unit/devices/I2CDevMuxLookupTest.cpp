#include <gtest/gtest.h>
#include <libudev.h>

#include <string>
#include <vector>

#include "devices/I2CDev.h"
#include "tests/doubles/Console.h"
#include "tests/doubles/OpenDescriptors.h"
#include "tests/doubles/TemporaryDirectory.h"

namespace {

/// What udev answers, and what it was asked.
struct FakeUdev {
  bool hasContext = true;
  bool hasEnumerator = true;
  std::vector<std::string> entries;
  std::vector<std::string> calls;

  // Handles are addresses: entry n has that of handles[n].
  char context = 0;
  char enumerator = 0;
  std::vector<char> handles;
};

FakeUdev* fake = nullptr;

udev* Context() { return reinterpret_cast<udev*>(&fake->context); }

udev_enumerate* Enumerator() { return reinterpret_cast<udev_enumerate*>(&fake->enumerator); }

udev_list_entry* Entry(std::size_t index) {
  return index < fake->entries.size()
             ? reinterpret_cast<udev_list_entry*>(fake->handles.data() + index)
             : nullptr;
}

std::size_t Index(udev_list_entry* entry) {
  return static_cast<std::size_t>(reinterpret_cast<char*>(entry) - fake->handles.data());
}

template <typename Handle>
void Record(const std::string& call, Handle handle, Handle expected) {
  fake->calls.push_back(call);
  EXPECT_EQ(handle, expected) << call;
}

void Record(const std::string& call, udev_list_entry* entry) {
  fake->calls.push_back(call + " " + std::to_string(Index(entry)));
  EXPECT_LT(Index(entry), fake->entries.size()) << call;
}

}  // namespace

extern "C" {
udev* WrapNew() __asm__("__wrap_udev_new");
udev* WrapUnref(udev* context) __asm__("__wrap_udev_unref");
udev_enumerate* WrapEnumerateNew(udev* context) __asm__("__wrap_udev_enumerate_new");
udev_enumerate* WrapEnumerateUnref(udev_enumerate* enumerator) __asm__(
    "__wrap_udev_enumerate_unref");
int WrapAddMatch(udev_enumerate* enumerator,
                 const char* subsystem) __asm__("__wrap_udev_enumerate_add_match_subsystem");
int WrapScan(udev_enumerate* enumerator) __asm__("__wrap_udev_enumerate_scan_devices");
udev_list_entry* WrapGetListEntry(udev_enumerate* enumerator) __asm__(
    "__wrap_udev_enumerate_get_list_entry");
const char* WrapGetName(udev_list_entry* entry) __asm__("__wrap_udev_list_entry_get_name");
udev_list_entry* WrapGetNext(udev_list_entry* entry) __asm__("__wrap_udev_list_entry_get_next");

udev* WrapNew() {
  fake->calls.emplace_back("new");
  return fake->hasContext ? Context() : nullptr;
}

udev* WrapUnref(udev* context) {
  Record("unref", context, Context());
  return nullptr;
}

udev_enumerate* WrapEnumerateNew(udev* context) {
  Record("enumerate_new", context, Context());
  return fake->hasEnumerator ? Enumerator() : nullptr;
}

udev_enumerate* WrapEnumerateUnref(udev_enumerate* enumerator) {
  Record("enumerate_unref", enumerator, Enumerator());
  return nullptr;
}

int WrapAddMatch(udev_enumerate* enumerator, const char* subsystem) {
  Record(std::string("add_match_subsystem ") + subsystem, enumerator, Enumerator());
  return 0;
}

int WrapScan(udev_enumerate* enumerator) {
  Record("scan_devices", enumerator, Enumerator());
  return 0;
}

udev_list_entry* WrapGetListEntry(udev_enumerate* enumerator) {
  Record("get_list_entry", enumerator, Enumerator());
  return Entry(0);
}

const char* WrapGetName(udev_list_entry* entry) {
  Record("get_name", entry);
  return fake->entries[Index(entry)].c_str();
}

udev_list_entry* WrapGetNext(udev_list_entry* entry) {
  Record("get_next", entry);
  return Entry(Index(entry) + 1);
}
}

namespace {

using Calls = std::vector<std::string>;

class I2CDevMuxLookupTest : public testing::Test {
 protected:
  I2CDevMuxLookupTest() { fake = &udev_; }
  ~I2CDevMuxLookupTest() override { fake = nullptr; }
  I2CDevMuxLookupTest(const I2CDevMuxLookupTest&) = delete;
  I2CDevMuxLookupTest& operator=(const I2CDevMuxLookupTest&) = delete;

  /// An entry of udev's list that has no name file.
  void AddEntry(const std::string& path) {
    udev_.entries.push_back(sys_.Path() + "/" + path);
    udev_.handles.push_back(0);
  }

  /// An adapter, with the contents of its name file.
  void AddAdapter(const std::string& path, const std::string& name) {
    AddEntry(path);
    static_cast<void>(sys_.File(path + "/name", name));
  }

  std::string Find(const std::string& parentBus, int channel) {
    std::string bus = I2CDev::FindI2CBusNameOfMuxChannel(parentBus, channel);
    EXPECT_EQ(console_.TakeOut() + console_.TakeErr(), "");
    return bus;
  }

  Console console_;
  TemporaryDirectory sys_;
  FakeUdev udev_;
};

TEST_F(I2CDevMuxLookupTest, ChannelIsFoundByNameAndUdevIsReleased) {
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "i2c-5");
  EXPECT_EQ(udev_.calls,
            (Calls{"new",
                   "enumerate_new",
                   "add_match_subsystem i2c",
                   "scan_devices",
                   "get_list_entry",
                   "get_name 0",
                   "enumerate_unref",
                   "unref"}));
}

TEST_F(I2CDevMuxLookupTest, ListIsWalkedToItsEndWhenThereIsNoSuchChannel) {
  AddAdapter("i2c-1", "soc adapter\n");
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 3), "");
  EXPECT_EQ(udev_.calls,
            (Calls{"new",
                   "enumerate_new",
                   "add_match_subsystem i2c",
                   "scan_devices",
                   "get_list_entry",
                   "get_name 0",
                   "get_next 0",
                   "get_name 1",
                   "get_next 1",
                   "enumerate_unref",
                   "unref"}));
}

TEST_F(I2CDevMuxLookupTest, EmptyListFindsNothing) {
  EXPECT_EQ(Find("i2c-1", 0), "");
  EXPECT_EQ(udev_.calls,
            (Calls{"new",
                   "enumerate_new",
                   "add_match_subsystem i2c",
                   "scan_devices",
                   "get_list_entry",
                   "enumerate_unref",
                   "unref"}));
}

TEST_F(I2CDevMuxLookupTest, NoContextFindsNothingAndReleasesNothing) {
  udev_.hasContext = false;
  EXPECT_EQ(Find("i2c-1", 0), "");
  EXPECT_EQ(udev_.calls, (Calls{"new"}));
}

TEST_F(I2CDevMuxLookupTest, NoEnumeratorFindsNothingAndReleasesNothing) {
  udev_.hasEnumerator = false;
  EXPECT_EQ(Find("i2c-1", 0), "");
  EXPECT_EQ(udev_.calls, (Calls{"new", "enumerate_new"}));
}

TEST_F(I2CDevMuxLookupTest, FirstMatchInUdevsOrderWins) {
  AddAdapter("i2c-1/i2c-9", "i2c-1-mux (chan_id 0)\n");
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "i2c-9");
  EXPECT_EQ(udev_.calls.at(5), "get_name 0");
  EXPECT_EQ(udev_.calls.at(6), "enumerate_unref");
}

TEST_F(I2CDevMuxLookupTest, OtherChannelsArePassedOver) {
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id 0)\n");
  AddAdapter("i2c-1/i2c-6", "i2c-1-mux (chan_id 1)\n");
  AddAdapter("i2c-1/i2c-7", "i2c-1-mux (chan_id 10)\n");
  EXPECT_EQ(Find("i2c-1", 1), "i2c-6");
}

TEST_F(I2CDevMuxLookupTest, LastOccurrenceOfTheWordStartsTheResult) {
  AddAdapter("platform/i2c-bus/i2c-1/1-0070/channel-0/i2c-12", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "i2c-12");
}

TEST_F(I2CDevMuxLookupTest, RestOfThePathAfterTheWordBelongsToTheResult) {
  AddAdapter("i2c-1/i2c-5/device", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "i2c-5/device");
}

TEST_F(I2CDevMuxLookupTest, PathWithoutTheParentIsPassedOverWhateverItsName) {
  AddAdapter("i2c-2/i2c-5", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "");
}

TEST_F(I2CDevMuxLookupTest, ParentMayOccurAnywhereInThePath) {
  AddAdapter("i2c-10/i2c-5", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "i2c-5");
}

TEST_F(I2CDevMuxLookupTest, LongerParentWithTheSameStartIsTakenByNameOnly) {
  AddAdapter("i2c-10/i2c-11", "i2c-10-mux (chan_id 0)\n");
  AddAdapter("i2c-10", "i2c-10-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "");
  EXPECT_EQ(Find("i2c-10", 0), "i2c-11");
}

TEST_F(I2CDevMuxLookupTest, EntryWithoutNameFileIsPassedOver) {
  AddEntry("i2c-1/1-0050");
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "i2c-5");
}

TEST_F(I2CDevMuxLookupTest, EmptyNameFileIsPassedOver) {
  AddAdapter("i2c-1/i2c-4", "");
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("i2c-1", 0), "i2c-5");
}

TEST_F(I2CDevMuxLookupTest, NegativeChannelHasASignInTheName) {
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id -1)\n");
  EXPECT_EQ(Find("i2c-1", -1), "i2c-5");
  EXPECT_EQ(Find("i2c-1", 1), "");
}

TEST_F(I2CDevMuxLookupTest, EmptyParentLooksEverywhereForANameWithoutParent) {
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id 0)\n");
  EXPECT_EQ(Find("", 0), "");
  AddAdapter("i2c-1/i2c-6", "-mux (chan_id 0)\n");
  EXPECT_EQ(Find("", 0), "i2c-6");
}

TEST_F(I2CDevMuxLookupTest, NameFilesAreClosedAgain) {
  AddAdapter("i2c-1", "soc adapter\n");
  AddAdapter("i2c-1/i2c-5", "i2c-1-mux (chan_id 0)\n");
  const std::vector<std::string> before = OpenDescriptors();
  EXPECT_EQ(Find("i2c-1", 0), "i2c-5");
  EXPECT_EQ(OpenDescriptors(), before);
}

struct NameRow {
  const char* test;
  const char* contents;
  const char* bus;
};

class I2CDevMuxNameTest : public I2CDevMuxLookupTest,
                          public testing::WithParamInterface<NameRow> {};

TEST_P(I2CDevMuxNameTest, FirstLineMustBeEqualInEveryCharacterAndInLength) {
  AddAdapter("i2c-1/i2c-5", GetParam().contents);
  EXPECT_EQ(Find("i2c-1", 0), GetParam().bus);
}

INSTANTIATE_TEST_SUITE_P(Names,
                         I2CDevMuxNameTest,
                         testing::Values(NameRow{"Newline", "i2c-1-mux (chan_id 0)\n", "i2c-5"},
                                         NameRow{"NoNewline", "i2c-1-mux (chan_id 0)", "i2c-5"},
                                         NameRow{
                                             "MoreLines", "i2c-1-mux (chan_id 0)\nmore\n", "i2c-5"},
                                         NameRow{"TrailingBlank", "i2c-1-mux (chan_id 0) \n", ""},
                                         NameRow{"CarriageReturn", "i2c-1-mux (chan_id 0)\r\n", ""},
                                         NameRow{"LeadingBlank", " i2c-1-mux (chan_id 0)\n", ""},
                                         NameRow{"CutShort", "i2c-1-mux (chan_id 0\n", ""},
                                         NameRow{"OtherCase", "I2C-1-mux (chan_id 0)\n", ""},
                                         NameRow{"SecondLine", "\ni2c-1-mux (chan_id 0)\n", ""}),
                         [](const auto& row) { return row.param.test; });

}  // namespace
