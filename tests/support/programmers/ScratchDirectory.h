#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// A fresh working directory; the former one returns, and the directory goes, at the end.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory();

 private:
  std::filesystem::path former_;
  std::filesystem::path path_;
};

void WriteFile(const std::string& path, std::string_view contents);

/// @return the whole file; "(cannot be opened)" when that is so
std::string ReadFile(const std::string& path);
