#pragma once

#include <filesystem>
#include <thread>
#include <vector>

#include "tests/program/VirtualInstrument.h"

namespace program_test {

/// Puts a named pipe in a file's place and feeds whoever opens it with the same bytes. Each opening
/// has a pipe of its own, so that no reader gets the bytes of two: the path stands for the next
/// pipe from the moment at which the one before it has been opened.
class PipeFeeder {
 public:
  /// @param contents  not more than a pipe holds, 64 KiB
  /// @param openings  that many are fed; the path then stands for no file
  PipeFeeder(std::filesystem::path path, const Bytes& contents, int openings);
  PipeFeeder(const PipeFeeder&) = delete;
  PipeFeeder& operator=(const PipeFeeder&) = delete;
  ~PipeFeeder();

 private:
  void Feed(const Bytes& contents);
  void PutInPlace(std::size_t pipe);

  std::filesystem::path path_;
  std::vector<std::filesystem::path> pipes_;
  std::thread thread_;
};

}  // namespace program_test
