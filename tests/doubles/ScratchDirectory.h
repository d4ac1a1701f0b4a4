#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "tests/doubles/TemporaryDirectory.h"

/// A new working directory. At the end the former one is restored, and the directory is removed.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory();

 private:
  TemporaryDirectory directory_;
  std::filesystem::path former_;
};

/// Creates a new file in place of one that exists.
void WriteFile(const std::string& path, std::string_view contents);

/// @return the whole file; "(cannot be opened)" if that fails
std::string ReadFile(const std::string& path);
