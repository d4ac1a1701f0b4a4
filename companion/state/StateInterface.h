#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace companion {

/// The folder that survives a restart: the lock, the marks of unfinished updates and the work folder.
/// No operation follows a link. Those that return a text return why it failed, one line; empty when it
/// did not. Each is tried again where one attempt fails.
class StateInterface {
 public:
  /// What came of taking the lock.
  struct Locking {
    bool locked = false;
    std::string holder;   ///< who has it, for a reader, when somebody else has
    std::string problem;  ///< why it cannot be taken at all
  };

  virtual ~StateInterface() = default;

  /// Opens the folder, creates it where its parent exists, takes the lock and removes a work folder
  /// that a killed holder has left. Processes that are started inherit the lock.
  /// @param purpose      what the next one is told: "update dax 2"
  /// @param waitSeconds  how long to wait for another holder
  virtual Locking Lock(const std::string& purpose, unsigned waitSeconds) = 0;

  /// Makes a fresh work folder with the image, synchronised, read back and compared.
  virtual std::string MakeWorkFolder(const std::string& imageName,
                                     std::span<const std::uint8_t> image) = 0;
  /// Removes the work folder with everything in it.
  virtual std::string RemoveWorkFolder() = 0;
  /// @return its path
  [[nodiscard]] virtual std::string WorkFolder() const = 0;

  /// @return true when an update of the slot has begun and has not been finished. What cannot be
  ///         looked at counts as marked.
  virtual bool IsMarked(unsigned module) = 0;
  /// Writes the mark, synchronised with its folder. Where that fails, none is left that was not there.
  virtual std::string Mark(unsigned module, const std::string& text) = 0;
  /// Removes the mark, synchronised with its folder.
  virtual std::string Unmark(unsigned module) = 0;
};

}  // namespace companion
