// Prints which tarnwick it would start. A test puts it beside one.
#include <iostream>

#include "companion/process/SignalWatch.h"
#include "companion/process/TarnwickProgram.h"

int main() {
  companion::SignalWatch watch;
  std::cout << companion::TarnwickProgram(watch, {}).Path();
}
