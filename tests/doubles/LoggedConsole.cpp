#include "tests/doubles/LoggedConsole.h"

#include <gtest/gtest.h>

#include <iostream>
#include <utility>

LoggedConsole::Buffer::Buffer(EventLog& log, std::string stream)
    : log_(log), stream_(std::move(stream)) {}

LoggedConsole::Buffer::int_type LoggedConsole::Buffer::overflow(int_type byte) {
  if (!traits_type::eq_int_type(byte, traits_type::eof())) {
    pending_ += traits_type::to_char_type(byte);
  }
  return traits_type::not_eof(byte);
}

int LoggedConsole::Buffer::sync() {
  if (!pending_.empty()) {
    log_.AddText(stream_, pending_);
    flushed_ += pending_;
    pending_.clear();
  }
  return 0;
}

LoggedConsole::LoggedConsole(EventLog& log)
    : out_(log, "out"),
      err_(log, "err"),
      originalOut_(std::cout.rdbuf(&out_)),
      originalErr_(std::cerr.rdbuf(&err_)) {}

LoggedConsole::~LoggedConsole() {
  EXPECT_EQ(out_.pending(), "") << "never flushed";
  EXPECT_EQ(err_.pending(), "") << "never flushed";
  std::cout.rdbuf(originalOut_);
  std::cerr.rdbuf(originalErr_);
}
