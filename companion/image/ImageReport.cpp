#include "companion/image/ImageReport.h"

#include <algorithm>
#include <sstream>

#include "companion/image/Decision.h"
#include "companion/image/ModuleTypes.h"
#include "companion/image/Quoted.h"

namespace companion {

namespace {

/// @param target  one of the types that look for this kind of text
BuildPlaces PlacesOf(const ImageFile& image, std::string_view target) {
  return {.inFile = StampText(target, BytesOfFile(image)),
          .inImage = StampText(target, image.bytes),
          .inHead = StampText(target, HeadThatHolds(image, target))};
}  // GCOVR_EXCL_BR_LINE: clean-up after an exception

TargetReport ReportFor(const ImageFile& image,
                       std::string_view target,
                       const std::optional<std::vector<std::uint8_t>>& dump) {
  TargetReport report;
  report.target = target;
  report.unfit = UnfitReason(image, target, false);
  report.overBlank = Predict(image, target, BlankHead(target));
  report.overSame = Predict(image, target, HeadThatHolds(image, target));
  report.overOther = Predict(image, target, HeadOfAnother(image, target));
  if (dump && dump->size() >= DumpedHeadBytes(target)) {
    report.overDump = Predict(image, target, *dump);
  }
  return report;
}

/// Why no type takes an image that none takes.
std::string WhyNone(const ImageReport& report) {
  for (const TargetReport& target : report.targets) {
    if (FormatOf(target.target) == report.image.format) {
      return *target.unfit;
    }
  }
  // Of no type's format. What else is wrong with it comes first; a bitstream may be of any length.
  return UnfitReason(report.image, "dax", true)
      .value_or("it is " + std::string(NameOf(report.image.format)));
}

std::optional<std::string> VerdictOf(const ImageReport& report,
                                     const std::optional<std::string>& target) {
  if (target) {
    return UnfitReason(report.image, *target, false);
  }
  const bool isTaken = std::any_of(report.targets.begin(),
                                   report.targets.end(),
                                   [](const TargetReport& one) { return !one.unfit; });
  if (isTaken) {
    return std::nullopt;
  }
  return WhyNone(report);
}

std::string_view NameOf(Packing packing) {
  switch (packing) {
    case Packing::kPlain:
      break;
    case Packing::kGzip:
      return "gzip, complete";
    case Packing::kGzipCutShort:
      return "gzip, cut short";
    case Packing::kGzipDamaged:
      return "gzip, damaged";
    case Packing::kGzipAndOtherBytes:
      return "gzip, complete, followed by other bytes";
  }
  return "plain";
}

// --- Text ---------------------------------------------------------------------------------------

std::string TextOf(const std::optional<std::string>& build) {
  if (!build) {
    return "none";
  }
  return Quoted(*build);
}

std::string VerdictText(const std::optional<std::string>& unfit) {
  if (!unfit) {
    return "fit";
  }
  return "unfit: " + *unfit;
}

void AddBuild(std::ostream& text, const char* label, const BuildPlaces& places) {
  text << label << TextOf(places.inImage);
  if (places.inFile != places.inImage) {
    text << "; tarnwick, which does not decompress, sees " << TextOf(places.inFile);
  }
  if (places.inHead != places.inImage) {
    text << "; not in the head that tarnwick dumps, where it sees " << TextOf(places.inHead);
  }
  text << '\n';
}

void AddTarget(std::ostream& text, const TargetReport& target) {
  text << target.target << ": " << VerdictText(target.unfit) << '\n'
       << "  bare tarnwick over a blank flash: " << target.overBlank.text << '\n'
       << "  over one that holds this image: " << target.overSame.text << '\n'
       << "  over one with another stamp or date: " << target.overOther.text << '\n';
  if (target.overDump) {
    text << "  over the dump: " << target.overDump->text << '\n';
  }
}

std::string SizeText(const ImageFile& image) {
  if (image.tooLarge) {
    return "more than " + std::to_string(kFlashBytes) + " bytes";
  }
  return std::to_string(image.bytes.size()) + " bytes";
}

// --- JSON ---------------------------------------------------------------------------------------

// Objects are put together key by key: in a nested list of initialisers a list of two texts would be
// taken for a key and its value.

template <typename Value>
nlohmann::json JsonOf(const std::optional<Value>& value) {
  if (!value) {
    return nullptr;
  }
  return *value;
}

nlohmann::json HashJson(const std::string& hash) {
  if (hash.empty()) {
    return nullptr;
  }
  return hash;
}

nlohmann::json BuildJson(const BuildPlaces& places) {
  nlohmann::json object;
  object["in_file"] = JsonOf(places.inFile);
  object["in_image"] = JsonOf(places.inImage);
  object["in_head"] = JsonOf(places.inHead);
  return object;
}

nlohmann::json PredictionJson(const Prediction& prediction) {
  nlohmann::json object;
  object["exit_code"] = nullptr;
  if (prediction.end == Prediction::End::kExit || prediction.end == Prediction::End::kException) {
    object["exit_code"] = prediction.exitCode;
  }
  object["endless"] = prediction.end == Prediction::End::kNever;
  object["text"] = prediction.text;
  return object;
}

nlohmann::json TargetJson(const TargetReport& target) {
  nlohmann::json object;
  object["target"] = target.target;
  object["fit"] = !target.unfit;
  object["reason"] = JsonOf(target.unfit);
  nlohmann::json& tarnwick = object["tarnwick"];
  tarnwick["over_blank"] = PredictionJson(target.overBlank);
  tarnwick["over_same"] = PredictionJson(target.overSame);
  tarnwick["over_other"] = PredictionJson(target.overOther);
  tarnwick["over_dump"] = nullptr;
  if (target.overDump) {
    tarnwick["over_dump"] = PredictionJson(*target.overDump);
  }
  return object;
}

const char* PackingJson(Packing packing) {
  switch (packing) {
    case Packing::kPlain:
      break;
    case Packing::kGzip:
      return "gzip";
    case Packing::kGzipCutShort:
      return "gzip-cut-short";
    case Packing::kGzipDamaged:
      return "gzip-damaged";
    case Packing::kGzipAndOtherBytes:
      return "gzip-and-other-bytes";
  }
  return "plain";
}

const char* FormatJson(ImageFormat format) {
  switch (format) {
    case ImageFormat::kBootImage:
      return "boot-image";
    case ImageFormat::kBitstream:
      return "bitstream";
    case ImageFormat::kNeither:
      break;
  }
  return "neither";
}

}  // namespace

ImageReport Examine(ImageFile image,
                    const std::optional<std::string>& target,
                    const std::optional<std::vector<std::uint8_t>>& dump) {
  ImageReport report{.image = std::move(image)};
  report.synchronisationWord = SynchronisationWordIn(report.image.bytes);
  for (const ModuleType& type : kModuleTypes) {
    BuildPlaces& places =
        type.format == ImageFormat::kBootImage ? report.buildDate : report.timeStamp;
    places = PlacesOf(report.image, type.target);
    report.targets.push_back(ReportFor(report.image, type.target, dump));
  }
  report.unfit = VerdictOf(report, target);
  return report;
}

std::string ImageText(const ImageReport& report) {
  const ImageFile& image = report.image;
  std::ostringstream text;
  const std::string hash = image.fileSha256.empty() ? "not read whole" : image.fileSha256;
  text << "file: " << Quoted(image.path) << ", a regular file of " << image.fileBytes << " bytes\n"
       << "SHA-256 of the file: " << hash << '\n'
       << "packing: " << NameOf(image.packing);
  if (image.packingEnd) {
    text << ", at byte " << *image.packingEnd;
  }
  text << '\n' << "image: " << SizeText(image) << '\n';
  if (image.packing != Packing::kPlain && !image.sha256.empty()) {
    text << "SHA-256 of the image: " << image.sha256 << '\n';
  }
  text << "format: " << NameOf(image.format);
  if (image.format == ImageFormat::kBitstream) {
    text << ", synchronisation word at byte " << report.synchronisationWord.value_or(0);
  }
  text << '\n';
  AddBuild(text, "build date (wend, pyx2): ", report.buildDate);
  AddBuild(text, "time stamp (dax, pyx1): ", report.timeStamp);
  for (const TargetReport& target : report.targets) {
    AddTarget(text, target);
  }
  text << VerdictText(report.unfit) << '\n';
  return text.str();
}

nlohmann::json ImageJson(const ImageReport& report) {
  const ImageFile& image = report.image;
  nlohmann::json targets = nlohmann::json::array();
  for (const TargetReport& target : report.targets) {
    targets.push_back(TargetJson(target));
  }
  nlohmann::json object;
  object["command"] = "image";
  nlohmann::json& file = object["file"];
  file["path"] = image.path;
  file["bytes"] = image.fileBytes;
  file["sha256"] = HashJson(image.fileSha256);
  file["packing"] = PackingJson(image.packing);
  file["packing_end"] = JsonOf(image.packingEnd);
  nlohmann::json& contents = object["image"];
  contents["bytes"] = image.bytes.size();
  contents["sha256"] = HashJson(image.sha256);
  contents["too_large"] = image.tooLarge;
  contents["gzip_in_gzip"] = image.gzipInGzip;
  contents["format"] = FormatJson(image.format);
  contents["synchronisation_word"] = JsonOf(report.synchronisationWord);
  object["build_date"] = BuildJson(report.buildDate);
  object["time_stamp"] = BuildJson(report.timeStamp);
  object["targets"] = targets;
  object["verdict"] = report.unfit ? "unfit" : "fit";
  object["reason"] = JsonOf(report.unfit);
  object["exit_code"] = report.unfit ? 1 : 0;
  return object;
}

}  // namespace companion
