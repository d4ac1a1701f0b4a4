#include "tests/fuzz/CapturedConsole.h"

#include <iostream>

CapturedConsole::CapturedConsole()
    : formerOut_(std::cout.rdbuf(&out_)), formerErr_(std::cerr.rdbuf(&err_)) {
  outFormat_.copyfmt(std::cout);
}

CapturedConsole::~CapturedConsole() {
  std::cout.rdbuf(formerOut_);
  std::cerr.rdbuf(formerErr_);
  std::cout.copyfmt(outFormat_);
}
