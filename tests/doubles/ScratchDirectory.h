#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "tests/doubles/TemporaryDirectory.h"

/// A fresh working directory; the former one returns, and the directory goes, at the end.
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

/// The file is a new one, whatever was there.
void WriteFile(const std::string& path, std::string_view contents);

/// @return the whole file; "(cannot be opened)" when that is so
std::string ReadFile(const std::string& path);
