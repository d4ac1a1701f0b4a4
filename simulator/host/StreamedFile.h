#pragma once

#include <array>
#include <ostream>
#include <streambuf>
#include <string>

#include "base/FileDescriptor.h"
#include "simulator/host/OutputFile.h"

namespace orvane {

/// A file that is written while the command runs, as a stream. What could not be written sets the
/// stream's badbit.
class StreamedFile : public std::ostream {
 public:
  /// Opens the file, see OutputFile, and creates it if there is none. What it holds stays.
  /// @throw std::system_error, with a text for the user
  explicit StreamedFile(OutputFile file);
  StreamedFile(const StreamedFile&) = delete;
  StreamedFile& operator=(const StreamedFile&) = delete;
  /// Removes a file that has been created here when Empty() has not been called.
  ~StreamedFile() override;

  /// Empties an ordinary file. Once, before anything is written.
  /// @throw std::system_error, with a text for the user
  void Empty();

  /// How a text starts that says that it was not written: "cannot write log file 'x'".
  const std::string& Failing() const { return file_.Failing(); }

 private:
  class Buffer : public std::streambuf {
   public:
    explicit Buffer(FileDescriptor file);
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() override;

    int Descriptor() const { return file_.Get(); }

   protected:
    int_type overflow(int_type letter) override;
    int sync() override;

   private:
    FileDescriptor file_;
    std::array<char, 8192> waiting_{};
  };

  OutputFile file_;
  const bool isOrdinary_;
  bool isToBeRemoved_;  // when nothing comes of the run
  Buffer buffer_;
};

}  // namespace orvane
