#include "tests/doubles/ConsoleCapture.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

ConsoleCapture::Stream::Stream(int fd) : fd_(fd), saved_(::dup(fd)), file_(std::tmpfile()) {
  if (saved_ < 0 || file_ == nullptr || ::dup2(::fileno(file_), fd_) < 0) {
    throw std::system_error(errno, std::generic_category(), "console capture");
  }
}

ConsoleCapture::Stream::~Stream() {
  ::dup2(saved_, fd_);
  // Not close(), which may lead into a scripted kernel.
  static_cast<void>(::syscall(SYS_close, saved_));
  if (testing::Test::HasFailure()) {
    static_cast<void>(std::fputs(ReadFrom(0).c_str(), stdout));
    static_cast<void>(std::fflush(stdout));
  }
  static_cast<void>(std::fclose(file_));
}

std::string ConsoleCapture::Stream::Take() {
  std::string text = ReadFrom(taken_);
  taken_ += static_cast<long>(text.size());
  return text;
}

std::string ConsoleCapture::Stream::ReadFrom(long position) {
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t count =
        ::pread(::fileno(file_), buffer, sizeof buffer, position + static_cast<long>(text.size()));
    if (count <= 0) {
      return text;
    }
    text.append(buffer, static_cast<std::size_t>(count));
  }
}

ConsoleCapture::ConsoleCapture() : out_(STDOUT_FILENO), err_(STDERR_FILENO) {}
