#pragma once

#include <cstddef>
#include <filesystem>
#include <thread>
#include <utility>
#include <vector>

#include "tests/e2e/VirtualInstrument.h"

namespace program_test {

/// Replaces a file by a named pipe and writes to it each time it is opened. Each opening has a pipe
/// of its own, so that no reader gets the bytes of two: the path leads to the next pipe before a
/// reader reaches the end of its own.
class PipeFeeder {
 public:
  /// @param contents  of each opening, not more than a pipe holds, 64 KiB; after the last there is
  ///                  no file
  PipeFeeder(std::filesystem::path path, std::vector<Bytes> contents);

  /// Feeds so many openings with the same bytes.
  PipeFeeder(std::filesystem::path path, const Bytes& contents, std::size_t openings)
      : PipeFeeder(std::move(path), std::vector<Bytes>(openings, contents)) {}

  PipeFeeder(const PipeFeeder&) = delete;
  PipeFeeder& operator=(const PipeFeeder&) = delete;
  ~PipeFeeder();

 private:
  void Feed(const std::vector<Bytes>& contents);
  void PutInPlace(std::size_t pipe);

  std::filesystem::path path_;
  std::vector<std::filesystem::path> pipes_;
  std::thread thread_;
};

}  // namespace program_test
