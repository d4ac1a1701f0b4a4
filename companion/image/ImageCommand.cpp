#include "companion/image/ImageCommand.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "companion/image/ImageReport.h"
#include "companion/image/ModuleTypes.h"
#include "companion/image/Quoted.h"
#include "companion/image/RegularFile.h"

namespace companion {

namespace {

void Write(std::ostream& out, const nlohmann::json& object) {
  out << object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
}

ExitCode Refuse(const ImageOptions& options, const std::string& why, std::ostream& out) {
  if (!options.json) {
    out << "refused: " << why << std::endl;
    return ExitCode::kRefused;
  }
  nlohmann::json object;
  object["command"] = "image";
  object["file"]["path"] = options.path;
  object["verdict"] = "refused";
  object["reason"] = why;
  object["exit_code"] = static_cast<int>(ExitCode::kRefused);
  Write(out, object);
  return ExitCode::kRefused;
}

/// What of a flash has to be in a dump, for the type that is asked about; without one, for any.
std::size_t LeastDumpBytes(const std::optional<std::string>& target) {
  if (target) {
    return TypeOf(*target).headBytes;
  }
  return std::min_element(
             kModuleTypes.begin(),
             kModuleTypes.end(),
             [](const ModuleType& a, const ModuleType& b) { return a.headBytes < b.headBytes; })
      ->headBytes;
}

/// As much of the contents of a flash as a type dumps.
/// @return nothing when it cannot be read, or is too short
std::optional<std::vector<std::uint8_t>> ReadDump(const std::string& path,
                                                  const std::optional<std::string>& target,
                                                  std::string& refusal) {
  const ModuleType& most = *std::max_element(
      kModuleTypes.begin(), kModuleTypes.end(), [](const ModuleType& a, const ModuleType& b) {
        return a.headBytes < b.headBytes;
      });
  RegularFile file(path);
  std::vector<std::uint8_t> bytes;
  if (file.Refusal().empty()) {
    file.ReadUpTo(most.headBytes, bytes);
  }
  refusal = file.Refusal();
  const std::size_t least = LeastDumpBytes(target);
  if (refusal.empty() && bytes.size() < least) {
    refusal = Quoted(path) + " is shorter than the " + std::to_string(least) +
              " bytes of the flash that tarnwick compares";
  }
  if (!refusal.empty()) {
    return std::nullopt;
  }
  return bytes;
}

}  // namespace

ExitCode RunImage(const ImageOptions& options, std::ostream& out) {
  ImageReading reading = ReadImageFile(options.path);
  if (!reading.image) {
    return Refuse(options, reading.refusal, out);
  }
  std::optional<std::vector<std::uint8_t>> dump;
  if (options.dump) {
    std::string refusal;
    dump = ReadDump(*options.dump, options.target, refusal);
    if (!dump) {
      return Refuse(options, refusal, out);
    }
  }
  const ImageReport report = Examine(*std::move(reading.image), options.target, dump);
  if (options.json) {
    Write(out, ImageJson(report));
  } else {
    out << ImageText(report) << std::flush;
  }
  return report.unfit ? ExitCode::kNot : ExitCode::kDone;
}

}  // namespace companion
