#include "tests/doubles/Console.h"

#include <cerrno>
#include <iostream>
#include <system_error>

Console::Console(EventLog* log, Takes takes)
    : out_("out", log),
      err_("err", log),
      formerOut_(std::cout.rdbuf(&out_)),
      formerErr_(std::cerr.rdbuf(&err_)) {
  outFormat_.copyfmt(std::cout);
  errFormat_.copyfmt(std::cerr);
  if (takes == Takes::kStreamsAndStdio) {
    out_.TakeOver(stdout, _IOFBF);
    err_.TakeOver(stderr, _IONBF);
  }
}

Console::~Console() {
  out_.GiveBack(stdout);
  err_.GiveBack(stderr);
  std::cout.rdbuf(formerOut_);
  std::cerr.rdbuf(formerErr_);
  std::cout.copyfmt(outFormat_);
  std::cerr.copyfmt(errFormat_);
}

void Console::Stream::Flush(std::string_view text) {
  flushed_ += text;
  if (log_ != nullptr && !text.empty()) {
    log_->AddText(name_, text);
  }
}

std::string Console::Stream::Take() {
  std::string text = flushed_.substr(taken_);
  taken_ = flushed_.size();
  return text;
}

Console::Stream::int_type Console::Stream::overflow(int_type byte) {
  if (!traits_type::eq_int_type(byte, traits_type::eof())) {
    pending_ += traits_type::to_char_type(byte);
  }
  return traits_type::not_eof(byte);
}

std::streamsize Console::Stream::xsputn(const char* text, std::streamsize count) {
  pending_.append(text, static_cast<std::size_t>(count));
  return count;
}

int Console::Stream::sync() {
  Flush(pending_);
  pending_.clear();
  return 0;
}

void Console::Stream::TakeOver(std::FILE*& standard, int buffering) {
  const cookie_io_functions_t functions = {
      .read = nullptr,
      .write = [](void* stream, const char* text, std::size_t count) -> ssize_t {
        static_cast<Stream*>(stream)->Flush({text, count});
        return static_cast<ssize_t>(count);
      },
      .seek = nullptr,
      .close = nullptr};
  file_ = ::fopencookie(this, "w", functions);
  if (file_ == nullptr || std::setvbuf(file_, nullptr, buffering, BUFSIZ) != 0) {
    throw std::system_error(errno, std::generic_category(), "console");
  }
  former_ = standard;
  standard = file_;
}

void Console::Stream::GiveBack(std::FILE*& standard) const {
  if (file_ != nullptr) {
    standard = former_;
    static_cast<void>(std::fclose(file_));
  }
}
