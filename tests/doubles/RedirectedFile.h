#pragma once

#include <string>

/// Decides, for as long as it lives, what this process finds when it opens one path as a C or C++
/// stream: std::ifstream opens through fopen() inside the C++ library, which --wrap does not reach.
/// Other paths, and open(), are not affected. One at a time.
class RedirectedFile {
 public:
  /// The path holds `contents`.
  RedirectedFile(std::string path, std::string contents);
  RedirectedFile(const RedirectedFile&) = delete;
  RedirectedFile& operator=(const RedirectedFile&) = delete;
  ~RedirectedFile();

  /// From now on there is no such file.
  static void Remove();

  /// @return how often the path has been opened, in vain or not
  static int Openings();
};
