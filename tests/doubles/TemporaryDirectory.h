#pragma once

#include <filesystem>
#include <string>

/// A new directory, removed with its contents at the end.
class TemporaryDirectory {
 public:
  /// @throw std::system_error
  explicit TemporaryDirectory(const std::string& parent = std::filesystem::temp_directory_path());
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  [[nodiscard]] const std::string& Path() const { return path_; }

  /// Writes a file, and the directories above it.
  /// @param name  relative to the directory
  /// @return its path
  [[nodiscard]] std::string File(const std::string& name, const std::string& contents) const;

 private:
  std::string path_;
};
