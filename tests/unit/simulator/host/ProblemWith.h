#pragma once

#include <stdexcept>
#include <string>

namespace orvane {

/// Makes a call that may throw.
/// @return the text of the exception; empty: there was none
template <typename Call>
std::string ProblemWith(const Call& call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

}  // namespace orvane
