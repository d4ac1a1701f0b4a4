#pragma once

#include <string>
#include <vector>

#include "tests/doubles/EventLog.h"

class SPIDev;

/// What the flash driver answers: its source file defines MT25QL128's members in place of the real
/// ones and belongs among the sources of the test program, so that the linker takes these. Every
/// call is one event, construction and destruction included.
class ScriptedFlash {
 public:
  explicit ScriptedFlash(EventLog& eventLog);
  ScriptedFlash(const ScriptedFlash&) = delete;
  ScriptedFlash& operator=(const ScriptedFlash&) = delete;
  ~ScriptedFlash();

  struct Dump {
    int result;
    std::string contents;  // written to the descriptor, whatever the result
  };

  int connectResult = 0;
  int eraseResult = 0;
  int programResult = 0;
  std::vector<Dump> dumps;  // one for each ReadDevice() call; a call too many fails the test

  SPIDev* spi = nullptr;  // what the last driver was constructed with
  EventLog& log;

  static ScriptedFlash* current;
};
