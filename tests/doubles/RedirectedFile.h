#pragma once

#include <cstdio>
#include <functional>
#include <string>

/// Decides, for as long as it lives, what this process finds when it opens one path as a C or C++
/// stream: std::fstream calls fopen() inside the C++ library, where --wrap does not replace it.
/// Other paths, and open(), are not affected.
class RedirectedFile {
 public:
  /// @return the stream for one opening; null, with errno set, when it fails
  using Open = std::function<std::FILE*(const char* mode)>;

  /// The path holds `contents`, and can be written.
  explicit RedirectedFile(std::string path, const std::string& contents = "");
  /// Each opening of the path is decided by a call.
  RedirectedFile(std::string path, Open open);
  RedirectedFile(const RedirectedFile&) = delete;
  RedirectedFile& operator=(const RedirectedFile&) = delete;
  ~RedirectedFile();

  /// From now on there is no such file.
  void Remove();

  /// @return how often the path has been opened, with success or without
  [[nodiscard]] int Openings() const { return openings_; }

  /// @return what the path holds now, unless openings are decided by a call
  [[nodiscard]] std::string Contents() const;

  /// What the seam calls.
  /// @return the one that lives for this path, or null
  static RedirectedFile* Find(const std::string& path);
  std::FILE* OpenOnce(const char* mode);

 private:
  std::FILE* OpenMemory(const char* mode) const;

  std::string path_;
  int memory_ = -1;
  Open open_;
  int openings_ = 0;
};

/// @return a stream that cannot be written: its bytes are refused when they are flushed
std::FILE* OpenFullDevice();
