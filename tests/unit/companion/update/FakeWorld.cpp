#include "tests/unit/companion/update/FakeWorld.h"

#include <algorithm>
#include <utility>

namespace companion::test {

namespace {

constexpr std::size_t kPage = 256;
constexpr std::size_t kSector = 64U * 1024;

std::optional<Difference> FirstDifference(const Bytes& found,
                                          std::span<const std::uint8_t> expected) {
  std::optional<Difference> difference;
  std::optional<std::size_t> page;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (found[i] == expected[i] || page == i / kPage) {
      continue;
    }
    if (!difference) {
      difference = Difference{.firstAddress = static_cast<std::uint32_t>(i),
                              .expected = expected[i],
                              .found = found[i]};
    }
    page = i / kPage;
    ++difference->pages;
  }
  return difference;
}

}  // namespace

Bytes Contents(const std::string& head, std::size_t bytes, std::uint8_t filling) {
  Bytes contents(bytes, filling);
  std::copy(head.begin(), head.end(), contents.begin());
  return contents;
}

FakeWorld::FakeWorld()
    : image(Contents("new1B", kImageBytes, 0x22)),
      flash(Contents("old1B", 2 * kSector, 0x11)),
      chip({.id = {0x20, 0xBA, 0x18}}) {}

Services FakeWorld::AsServices() {
  return {.module = *this,
          .state = *this,
          .fetchSignals =
              [this] {
                for (; signalsWaiting > 0; --signalsWaiting) {
                  signalled();
                }
              },
          .say = [this](const std::string& line) { said.push_back(line); },
          .progress = {},
          .now = [this] { return clock_ += std::chrono::milliseconds(1); }};
}

ImageFile FakeWorld::AsImageFile() const {
  return {.path = "new.bin",
          .fileBytes = image.size(),
          .fileSha256 = std::string(64, 'a'),
          .bytes = image,
          .sha256 = "sum of the image"};
}

void FakeWorld::Called(const std::string& call) {
  calls.push_back(call);
  if (onCall) {
    onCall(call);
  }
}

// --- Module -------------------------------------------------------------------------------------

Problem FakeWorld::Find(ModuleNames& found) {
  Called("find");
  found = names;
  return {.text = findProblem};
}

ModuleReading FakeWorld::Read(const ModuleNames& /*used*/,
                              std::size_t length,
                              std::span<const std::uint8_t> expected,
                              const Progress& /*progress*/) {
  Called("read " + std::to_string(length));
  ModuleReading reading = {.chip = chip, .done = done, .doneAfter = done, .endpoint = endpoint};
  reading.contents.assign(flash.begin(), flash.begin() + static_cast<std::ptrdiff_t>(length));
  reading.difference = FirstDifference(reading.contents, expected);
  if (onRead) {
    onRead(reads_, reading);
  }
  ++reads_;
  return reading;
}

Problem FakeWorld::WriteHead(const ModuleNames& /*used*/, std::span<const std::uint8_t> page) {
  Called("write head");
  if (headProblem.empty()) {
    std::fill_n(flash.begin(), kSector, std::uint8_t{0xFF});
    std::copy(page.begin(), page.end(), flash.begin());
  }
  return {.text = headProblem};
}

IntoUse FakeWorld::TakeIntoUse(const ModuleNames& /*used*/) {
  Called("take into use");
  if (endpoint != Endpoint::kNone) {
    endpoint = Endpoint::kEnabled;
  }
  IntoUse inUse = {.done = DoneLine::kHigh, .seenLow = true, .endpoint = endpoint};
  if (onIntoUse) {
    onIntoUse(resets_, inUse);
  }
  ++resets_;
  return inUse;
}

companion::Problem FakeWorld::Lock(const ModuleNames& /*used*/) {
  Called("protect");
  return {.text = lockProblem};
}

Problem FakeWorld::GiveBack(const ModuleNames& /*used*/) {
  Called("give back");
  return {.text = giveBackProblem};
}

// --- Program ------------------------------------------------------------------------------------

std::string FakeWorld::Check() {
  Called("check tarnwick");
  return programCheck;
}

ProgramRun FakeWorld::Update(const std::string& target, unsigned module, const std::string& name) {
  Called("tarnwick " + target + " " + std::to_string(module) + " " + name);
  ProgramRun run = {.exitCode = 0};
  if (onProgram) {
    onProgram(runs_, run);
  }
  ++runs_;
  if (programWrites) {
    std::copy(image.begin(), image.end(), flash.begin());
  }
  return run;
}

// --- State --------------------------------------------------------------------------------------

StateInterface::Locking FakeWorld::Lock(const std::string& purpose, unsigned waitSeconds) {
  Called("lock, " + purpose + ", wait " + std::to_string(waitSeconds));
  if (!stateProblem.empty()) {
    return {.problem = stateProblem};
  }
  return {.locked = !locked, .holder = locked ? "process 7 (update dax 2)" : ""};
}

std::string FakeWorld::MakeWorkFolder(const std::string& name,
                                      std::span<const std::uint8_t> bytes) {
  Called("make work folder, " + name + " of " + std::to_string(bytes.size()));
  return folderProblem;
}

std::string FakeWorld::RemoveWorkFolder() {
  Called("remove work folder");
  return removeProblem;
}

bool FakeWorld::IsMarked(unsigned /*module*/) { return marked; }

std::string FakeWorld::Mark(unsigned module, const std::string& text) {
  Called("mark " + std::to_string(module) + ", " + text);
  if (markProblem.empty()) {
    marked = true;
  }
  return markProblem;
}

std::string FakeWorld::Unmark(unsigned module) {
  Called("unmark " + std::to_string(module));
  if (unmarkProblem.empty()) {
    marked = false;
  }
  return unmarkProblem;
}

}  // namespace companion::test
