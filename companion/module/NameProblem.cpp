#include "companion/module/NameProblem.h"

#include <algorithm>
#include <climits>

namespace companion {

namespace {

constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kDelete = 0x7F;

bool IsControl(char c) {
  const auto code = static_cast<unsigned char>(c);
  return code < kFirstPrintable || code == kDelete;
}

}  // namespace

std::string NameProblem(const std::string& name) {
  if (name.empty()) {
    return "is empty";
  }
  if (name.size() > NAME_MAX) {
    return "is longer than " + std::to_string(NAME_MAX) + " bytes";
  }
  if (name.find('/') != std::string::npos) {
    return "has a '/'";
  }
  if (std::any_of(name.begin(), name.end(), IsControl)) {
    return "has a control character";
  }
  return name == "." || name == ".." ? "is a folder" : "";
}

}  // namespace companion
