#include "proofs/maps/Words.h"

#include <sstream>

namespace maps {

namespace {

std::string WordsFor(const std::string& name, const std::string& value) {
  if (name == "done") {
    return "DONE " + value;
  }
  if (name == "driven") {
    return value == "0x0000" ? "released" : "drives " + value;
  }
  if (name == "pcie") {
    return "PCIe " + value;
  }
  return name == "selector" ? value : name + " " + value;
}

}  // namespace

std::string_view WordFor(Flash flash) {
  switch (flash) {
    case Flash::kOld:
      return "unchanged";
    case Flash::kImage:
      return "image";
    case Flash::kDamaged:
      return "damaged";
    case Flash::kLooksNew:
      return "damaged, looks new";
  }
  return "";
}

std::string StateWords(const std::string& state) {
  std::string text;
  std::istringstream words(state);
  for (std::string word; words >> word;) {
    const std::size_t equals = word.find('=');
    text += (text.empty() ? "" : ", ") + WordsFor(word.substr(0, equals), word.substr(equals + 1));
  }
  return text;
}

}  // namespace maps
