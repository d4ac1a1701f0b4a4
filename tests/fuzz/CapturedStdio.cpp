#include "tests/fuzz/CapturedStdio.h"

#include <cstdlib>

#include "tests/fuzz/Require.h"

void CapturedStdio::Stream::Open(std::FILE*& standard) {
  file = ::open_memstream(&text, &size);
  Require(file != nullptr, "there is memory for a stream");
  former = standard;
  standard = file;  // a variable, with this C library
}

void CapturedStdio::Stream::Close(std::FILE*& standard) const {
  standard = former;
  static_cast<void>(std::fclose(file));
  std::free(text);
}

CapturedStdio::CapturedStdio() {
  out_.Open(stdout);
  err_.Open(stderr);
}

CapturedStdio::~CapturedStdio() {
  out_.Close(stdout);
  err_.Close(stderr);
}
