#include "proofs/swarm/Observation.h"

#include <sstream>
#include <stdexcept>

namespace swarm {

namespace {

constexpr const char* kNoFiles = "-";

}  // namespace

std::string Print(const Observation& seen) {
  std::ostringstream line;
  line << seen.step << ' ' << seen.what << " code=" << seen.code << " cut=" << seen.isCut
       << " hangs=" << seen.hangs << " holds=" << seen.isHolding << " loads=" << seen.isLoaded
       << " same=" << seen.isSame << " left=" << seen.left
       << " before=" << (seen.before.empty() ? kNoFiles : seen.before)
       << " files=" << (seen.files.empty() ? kNoFiles : seen.files) << " state " << seen.state;
  return line.str();
}

Observation ParseObservation(const std::string& line) {
  const std::size_t state = line.find(" state ");
  if (state == std::string::npos) {
    throw std::invalid_argument("no observation: " + line);
  }
  const std::string head = line.substr(0, state);
  const auto flag = [&head](const char* name) { return ValueIn(head, name) == "1"; };
  Observation seen;
  std::istringstream words(head);
  words >> seen.step >> seen.what;
  seen.code = std::stoi(ValueIn(head, "code"));
  seen.isCut = flag("cut");
  seen.hangs = flag("hangs");
  seen.isHolding = flag("holds");
  seen.isLoaded = flag("loads");
  seen.isSame = flag("same");
  seen.left = static_cast<unsigned>(std::stoul(ValueIn(head, "left")));
  const auto names = [&head](const char* name) {
    std::string value = ValueIn(head, name);
    return value == kNoFiles ? "" : value;
  };
  seen.before = names("before");
  seen.files = names("files");
  constexpr std::size_t kWordBytes = 7;
  seen.state = line.substr(state + kWordBytes);
  return seen;
}

std::string ValueIn(std::string_view state, std::string_view name) {
  std::istringstream words{std::string(state)};
  const std::string start = std::string(name) + "=";
  for (std::string word; words >> word;) {
    if (word.starts_with(start)) {
      return word.substr(start.size());
    }
  }
  return "";
}

}  // namespace swarm
