#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "app/Targets.h"
#include "companion/module/ModuleInterface.h"
#include "companion/module/ModuleMemory.h"
#include "companion/module/ModulePlace.h"
#include "companion/module/Step.h"
#include "companion/process/SharedMemory.h"
#include "companion/process/Worker.h"

namespace companion {

class ModuleAccess;
class SignalWatch;

/// What is given back of the expander's lines that the program does not drive. They become outputs
/// when the reading is lost from which it changes the others.
enum class OtherLines {
  kAsFound,
  kInputs,  ///< as after power-on
};

/// The module in one slot. Each operation runs in a worker and is tried up to three times; bringing
/// the flash into use once more only when its worker did not come to its end. When a worker did not,
/// another one gives the module back first.
class Module : public ModuleInterface {
 public:
  /// @param target   borrowed
  /// @param slot     its number
  /// @param signals  borrowed; read while a worker runs
  /// @param others   after each operation
  Module(const Target& target, unsigned slot, SignalWatch& signals, OtherLines others);

  Problem Find(ModuleNames& names) override;
  ModuleReading Read(const ModuleNames& names,
                     std::size_t length,
                     std::span<const std::uint8_t> expected,
                     const Progress& progress) override;
  Problem WriteHead(const ModuleNames& names, std::span<const std::uint8_t> page) override;
  IntoUse TakeIntoUse(const ModuleNames& names) override;
  Problem Lock(const ModuleNames& names) override;
  Problem GiveBack(const ModuleNames& names) override;
  void OnPsMode(std::function<void()> announce) override { announcePsMode_ = std::move(announce); }
  void Stop() override;

 private:
  /// What an operation does with the module before that is given back.
  using Work = std::function<void(ModuleAccess&, const Interruption&)>;

  /// How an operation is run.
  struct Conditions {
    unsigned limitSeconds = 0;
    const ModulePlace* place = nullptr;  ///< null: the module is not touched
    int tries = kTries;
    bool repeatsReportedFailure = true;   ///< else only when the worker did not come to its end
    bool takesWholeRun = false;           ///< succeeds only when the worker has done everything
    bool releasesReset = false;           ///< as Restore() has it
    bool heedsStop = true;                ///< Stop() ends it
    std::function<void()> woken = [] {};  ///< as Worker::Run() has it
  };

  /// @return why none of the tries succeeded; empty when one did
  Problem Run(const Conditions& conditions, const std::function<void(const Interruption&)>& task);
  /// @param afterwards  what the worker does once the module is given back
  Problem RunOnModule(const Conditions& conditions,
                      const Work& work,
                      const std::function<void()>& afterwards);
  /// Gives back what a worker or another process has left.
  /// @param releasesReset  also the reset of a wend, whose control file tells nobody who drives it
  Problem Restore(const ModulePlace& place, bool releasesReset);
  void TakeOver(const Problem& restoring);
  /// @return as ModuleAccess::LookAfter() takes it
  [[nodiscard]] std::optional<std::uint16_t> Resting() const;
  void AnnouncePsMode();
  [[nodiscard]] Problem NotGivenBackOr(Problem problem) const;
  [[nodiscard]] static unsigned LimitSeconds(std::size_t bytes);

  const Target& target_;
  unsigned slot_;
  SignalWatch& signals_;
  OtherLines others_;
  SharedMemory<ModuleMemory> memory_;
  std::function<void()> announcePsMode_;  ///< empty once it has been called
};

}  // namespace companion
