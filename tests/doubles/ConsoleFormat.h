#pragma once

#include <ios>
#include <iostream>

/// Keeps the format state of std::cout and std::cerr, which code under test may leave changed, and
/// puts it back in the end.
class ConsoleFormat {
 public:
  ConsoleFormat() {
    out_.copyfmt(std::cout);
    err_.copyfmt(std::cerr);
  }
  ConsoleFormat(const ConsoleFormat&) = delete;
  ConsoleFormat& operator=(const ConsoleFormat&) = delete;
  ~ConsoleFormat() {
    std::cout.copyfmt(out_);
    std::cerr.copyfmt(err_);
  }

 private:
  std::ios out_{nullptr};
  std::ios err_{nullptr};
};
