#include "programmers/FpgaProgrammerInterface.h"

#include <iostream>

namespace {

FpgaProgrammerInterface::Status NotImplemented() {
  std::cerr << "Function Not Implemented" << std::endl;
  return FpgaProgrammerInterface::ProgramFailed;
}

}  // namespace

FpgaProgrammerInterface::Status FpgaProgrammerInterface::OptionalOperationA() {
  return NotImplemented();
}

FpgaProgrammerInterface::Status FpgaProgrammerInterface::OptionalOperationB() {
  return NotImplemented();
}

FpgaProgrammerInterface::Status FpgaProgrammerInterface::OptionalOperationC() {
  return NotImplemented();
}
