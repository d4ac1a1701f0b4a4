#pragma once

#include <array>
#include <ostream>
#include <streambuf>

#include "base/FileDescriptor.h"
#include "simulator/host/OutputFile.h"

namespace orvane {

/// A file that is written while the command runs, as a stream. What could not be written sets the stream's badbit.
class StreamedFile : public std::ostream {
 public:
  /// Opens the file, see OutputFile, and empties it when it is an ordinary one.
  /// @throw std::system_error, with a text for the user
  explicit StreamedFile(OutputFile& file);

 private:
  class Buffer : public std::streambuf {
   public:
    explicit Buffer(FileDescriptor file);
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() override;

   protected:
    int_type overflow(int_type letter) override;
    int sync() override;

   private:
    FileDescriptor file_;
    std::array<char, 8192> waiting_{};
  };

  Buffer buffer_;
};

}  // namespace orvane
