#pragma once

#include <cstdio>
#include <string>

#include "tests/doubles/ConsoleFormat.h"

/// Takes over descriptors 1 and 2 and gives them back when destroyed, together with the format
/// state of std::cout and std::cerr, which code under test may leave changed. Whatever a failed
/// test printed, its failure included, is printed again then.
class ConsoleCapture {
 public:
  ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  /// What has reached the descriptor since the last call. Text that was not flushed is not there.
  std::string TakeOut() { return out_.Take(); }
  std::string TakeErr() { return err_.Take(); }

 private:
  class Stream {
   public:
    explicit Stream(int fd);
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream();

    std::string Take();

   private:
    std::string ReadFrom(long position);

    int fd_;
    int saved_;
    std::FILE* file_;
    long taken_ = 0;
  };

  Stream out_;
  Stream err_;
  ConsoleFormat format_;
};
