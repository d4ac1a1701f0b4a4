#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "companion/image/ImageFile.h"
#include "companion/module/ModuleInterface.h"
#include "companion/process/ProgramInterface.h"
#include "companion/state/StateInterface.h"
#include "companion/update/Sequence.h"

namespace companion::test {

using Bytes = std::vector<std::uint8_t>;
using Calls = std::vector<std::string>;

/// An image or a flash: stamp and format, then the same byte up to its end.
Bytes Contents(const std::string& head, std::size_t bytes, std::uint8_t filling);

/// A module, `tarnwick` and the folder of --state as the sequences see them. They do what they are
/// asked for, unless a test says otherwise, and keep a list of the calls.
class FakeWorld : public ModuleInterface, public ProgramInterface, public StateInterface {
 public:
  static constexpr std::size_t kImageBytes = 1000;

  FakeWorld();

  [[nodiscard]] Services AsServices();
  [[nodiscard]] ImageFile AsImageFile() const;

  // What is there.
  Bytes image;
  Bytes flash;
  Chip chip;
  DoneLine done = DoneLine::kHigh;
  Endpoint endpoint = Endpoint::kNone;
  ModuleNames names = {.populated = true, .i2cBus = "i2c-1", .spiDev = "spidev1.0"};
  bool marked = false;
  bool locked = false;  ///< by another
  std::string transferLimit;
  std::string programCheck;

  // What goes wrong: changes the answer of the Nth call, from 0.
  std::function<void(int n, ModuleReading& reading)> onRead;
  std::function<void(int n, ProgramRun& run)> onProgram;  ///< before it writes, with exit code 0
  std::function<void(int n, IntoUse& inUse)> onIntoUse;
  /// Called in every call with its name, before anything happens.
  std::function<void(const std::string& call)> onCall;
  bool programWrites = true;
  std::string findProblem, headProblem, lockProblem, giveBackProblem;
  std::string folderProblem, removeProblem, markProblem, unmarkProblem, stateProblem;

  // What happened.
  Calls calls;
  Calls said;
  int stops = 0;
  int kills = 0;
  int signalsWaiting = 0;           ///< handed over by fetchSignals
  std::function<void()> signalled;  ///< the sequence's
  std::function<void()> announcePsMode;

  // ModuleInterface
  Problem Find(ModuleNames& found) override;
  ModuleReading Read(const ModuleNames& used,
                     std::size_t length,
                     std::span<const std::uint8_t> expected,
                     const Progress& progress) override;
  Problem WriteHead(const ModuleNames& used, std::span<const std::uint8_t> page) override;
  IntoUse TakeIntoUse(const ModuleNames& used) override;
  companion::Problem Lock(const ModuleNames& used) override;
  Problem GiveBack(const ModuleNames& used) override;
  void OnPsMode(std::function<void()> announce) override { announcePsMode = std::move(announce); }
  void Stop() override { ++stops; }

  // ProgramInterface
  std::string Check() override;
  ProgramRun Update(const std::string& target, unsigned module, const std::string& name) override;
  void Kill() override { ++kills; }

  // StateInterface
  Locking Lock(const std::string& purpose, unsigned waitSeconds) override;
  std::string MakeWorkFolder(const std::string& name, std::span<const std::uint8_t> bytes) override;
  std::string RemoveWorkFolder() override;
  [[nodiscard]] std::string WorkFolder() const override { return "/state/work"; }
  bool IsMarked(unsigned module) override;
  std::string Mark(unsigned module, const std::string& text) override;
  std::string Unmark(unsigned module) override;

 private:
  void Called(const std::string& call);

  int reads_ = 0, runs_ = 0, resets_ = 0;
  std::chrono::milliseconds clock_{0};
};

}  // namespace companion::test
