#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/FileDescriptor.h"
#include "companion/state/StateInterface.h"

namespace companion {

/// The folder of --state:
///   lock               locked by the one that works; holds who that is, for a reader
///   slot-N.unfinished  mark of an update of slot N
///   work/              the image, and what `tarnwick` leaves in its working directory
/// Everything in it belongs to its owner alone, and the folder to the effective user. Refused are a
/// folder that others can write, a link at its path, and one that holds a `work` and neither a `lock`
/// nor a mark: `work` would be removed. What is found under a mark's name counts as a mark, whatever it is;
/// a link there is replaced, and what else is no regular file with one link is not written.
class StateFolder : public StateInterface {
 public:
  /// What ends a wait for the lock, before its time.
  struct Stop {
    int descriptor = FileDescriptor::kClosed;  ///< borrowed; asks when it is readable (POLLIN)
    std::function<bool()> hasArrived;          ///< takes what has arrived
  };

  /// Touches nothing yet.
  StateFolder(std::string path, Stop stop);
  StateFolder(const StateFolder&) = delete;
  StateFolder& operator=(const StateFolder&) = delete;
  /// Releases the lock, unless a process that inherited it still runs.
  ~StateFolder() override;

  /// Without a lock and a problem when the wait was stopped, too.
  Locking Lock(const std::string& purpose, unsigned waitSeconds) override;

  std::string MakeWorkFolder(const std::string& imageName,
                             std::span<const std::uint8_t> image) override;
  std::string RemoveWorkFolder() override;
  [[nodiscard]] std::string WorkFolder() const override;
  /// @return the work folder, borrowed; -1 when there is none
  [[nodiscard]] int WorkFolderDescriptor() const;

  bool IsMarked(unsigned module) override;
  std::string Mark(unsigned module, const std::string& text) override;
  /// Removes a link, too, and not what it leads to.
  std::string Unmark(unsigned module) override;

 private:
  /// A file, or why it cannot be opened.
  struct Opened {
    FileDescriptor file = FileDescriptor();
    std::string problem;
  };

  [[nodiscard]] int Folder() const;
  [[nodiscard]] std::string PathOf(std::string_view name) const;
  std::string OpenFolder();
  [[nodiscard]] std::string FolderRefusal(int folder) const;
  [[nodiscard]] Opened OpenFile(const std::string& name, int flags) const;
  [[nodiscard]] std::string FileRefusal(const std::string& name, int file) const;
  [[nodiscard]] std::string WorkFolderRefusal() const;
  std::string OpenLock();
  Locking AwaitLock(unsigned waitSeconds);
  std::string TryLock();
  [[nodiscard]] bool AwaitNextAttempt(std::uint64_t& attemptsLeft) const;
  [[nodiscard]] std::string Holder() const;
  void WriteHolder(const std::string& purpose) const;
  std::string FillWorkFolder(const std::string& imageName, std::span<const std::uint8_t> image);
  [[nodiscard]] std::string WriteImage(const std::string& name,
                                       std::span<const std::uint8_t> image) const;
  [[nodiscard]] std::string CompareImage(const std::string& name,
                                         std::span<const std::uint8_t> image) const;
  [[nodiscard]] std::string WriteMark(const std::string& name, const std::string& text) const;
  [[nodiscard]] std::string SyncFolder() const;

  std::string path_;
  Stop stop_;
  std::optional<FileDescriptor> folder_;
  std::optional<FileDescriptor> lock_;
  std::optional<FileDescriptor> work_;
  bool isLocked_ = false;
};

}  // namespace companion
