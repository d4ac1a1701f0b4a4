#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator/trace/ObserverList.h"

namespace orvane {
namespace {

using std::chrono::nanoseconds;

/// Notes what it is told, one letter more than its name for each call.
class Notes : public RunObserver {
 public:
  Notes(std::string name, std::vector<std::string>& calls)
      : name_(std::move(name)), calls_(calls) {}

  void OnStart(std::span<const ObservedModule> modules,
               std::span<const std::string> chassisI2c) override {
    Note("start " + modules[0].type + " " + chassisI2c[0]);
  }
  void OnSpi(const ObservedSpi& message) override { Note("spi " + std::string(message.path)); }
  void OnI2c(const ObservedI2c& transfer) override { Note("i2c " + std::string(transfer.path)); }
  void OnAccess(const ObservedAccess& access) override {
    Note("access " + std::string(access.path));
  }
  void OnDBus(std::string_view call, nanoseconds at, Outcome outcome) override {
    Note("dbus " + std::string(call) + Text(at) + (outcome == Outcome::kFailed ? " failed" : ""));
  }
  void OnSleep(Period period) override { Note("sleep" + Text(period.begin) + Text(period.end)); }
  void OnUnseen(Period period) override { Note("unseen" + Text(period.begin) + Text(period.end)); }
  void OnConsole(int descriptor, std::string_view bytes, nanoseconds at) override {
    Note("console " + std::to_string(descriptor) + " " + std::string(bytes) + Text(at));
  }
  void OnOther(std::string_view text, nanoseconds at) override {
    Note("other " + std::string(text) + Text(at));
  }
  void OnChipBusy(unsigned slot, ChipWork work, std::uint32_t address, nanoseconds at) override {
    Note("busy " + std::to_string(slot) + " " + std::to_string(static_cast<int>(work)) + " " +
         std::to_string(address) + Text(at));
  }
  void OnChipReady(unsigned slot, nanoseconds at) override {
    Note("ready " + std::to_string(slot) + Text(at));
  }
  void OnLine(unsigned slot, LineLevel level, nanoseconds at) override {
    Note("line " + std::to_string(slot) + " " + std::string(LineName(level.line)) +
         (level.high ? " 1" : " 0") + Text(at));
  }
  void OnEnd(nanoseconds at) override { Note("end" + Text(at)); }

 private:
  static std::string Text(nanoseconds time) { return " " + std::to_string(time.count()); }
  void Note(const std::string& call) { calls_.push_back(name_ + ": " + call); }

  std::string name_;
  std::vector<std::string>& calls_;
};

TEST(ObserverListTest, WithoutObserverIsEmpty) { EXPECT_TRUE(ObserverList().Empty()); }

TEST(ObserverListTest, TellsEachObserverInTheirOrder) {
  std::vector<std::string> calls;
  Notes first("a", calls);
  Notes second("b", calls);
  ObserverList list;
  list.Add(first);
  list.Add(second);
  EXPECT_FALSE(list.Empty());
  list.OnEnd(nanoseconds(9));
  EXPECT_EQ(calls, (std::vector<std::string>{"a: end 9", "b: end 9"}));
}

TEST(ObserverListTest, PassesEverythingOn) {
  std::vector<std::string> calls;
  Notes notes("a", calls);
  ObserverList list;
  list.Add(notes);
  list.OnStart(std::vector<ObservedModule>{{.type = "wend"}},
               std::vector<std::string>{"/dev/i2c-0"});
  list.OnSpi({.path = "/dev/spidev1.0"});
  list.OnI2c({.path = "/dev/i2c-1"});
  list.OnAccess({.path = "/sys/x"});
  list.OnDBus("GetI2CBus 1", nanoseconds(1), Outcome::kFailed);
  list.OnSleep({nanoseconds(2), nanoseconds(3)});
  list.OnUnseen({nanoseconds(3), nanoseconds(4)});
  list.OnConsole(2, "text", nanoseconds(5));
  list.OnOther("open x", nanoseconds(6));
  list.OnChipBusy(4, ChipWork::kSectorErase, 65'536, nanoseconds(7));
  list.OnChipReady(4, nanoseconds(8));
  list.OnLine(5, {Line::kDone, true}, nanoseconds(9));
  list.OnEnd(nanoseconds(10));
  EXPECT_EQ(calls,
            (std::vector<std::string>{"a: start wend /dev/i2c-0",
                                      "a: spi /dev/spidev1.0",
                                      "a: i2c /dev/i2c-1",
                                      "a: access /sys/x",
                                      "a: dbus GetI2CBus 1 1 failed",
                                      "a: sleep 2 3",
                                      "a: unseen 3 4",
                                      "a: console 2 text 5",
                                      "a: other open x 6",
                                      "a: busy 4 3 65536 7",
                                      "a: ready 4 8",
                                      "a: line 5 DONE 1 9",
                                      "a: end 10"}));
}

TEST(ObserverListTest, ObserverThatOverridesNothingTakesEverything) {
  RunObserver nobody;
  ObserverList list;
  list.Add(nobody);
  list.OnStart({}, {});
  list.OnSpi({});
  list.OnI2c({});
  list.OnAccess({});
  list.OnDBus("", {}, {});
  list.OnSleep({});
  list.OnUnseen({});
  list.OnConsole(1, "", {});
  list.OnOther("", {});
  list.OnChipBusy(1, {}, 0, {});
  list.OnChipReady(1, {});
  list.OnLine(1, {}, {});
  EXPECT_NO_THROW(list.OnEnd({}));
}

}  // namespace
}  // namespace orvane
