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
}

TargetReport ReportFor(const ImageFile& image,
                       std::string_view target,
                       const std::optional<std::vector<std::uint8_t>>& dump) {
  TargetReport report{.target = std::string(target),
                      .unfit = UnfitReason(image, target, false),
                      .overBlank = Predict(image, target, BlankHead(target)),
                      .overSame = Predict(image, target, HeadThatHolds(image, target)),
                      .overOther = Predict(image, target, HeadOfAnother(image, target)),
                      .overDump = std::nullopt};
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
  return isTaken ? std::nullopt : std::optional(WhyNone(report));
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
  return build ? Quoted(*build) : "none";
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
  text << target.target << ": " << (target.unfit ? "unfit: " + *target.unfit : "fit") << '\n'
       << "  bare tarnwick over a blank flash: " << target.overBlank.text << '\n'
       << "  over one that holds this image: " << target.overSame.text << '\n'
       << "  over one with another stamp or date: " << target.overOther.text << '\n';
  if (target.overDump) {
    text << "  over the dump: " << target.overDump->text << '\n';
  }
}

std::string SizeText(const ImageFile& image) {
  const std::string bytes = std::to_string(image.bytes.size()) + " bytes";
  return image.tooLarge ? "more than " + std::to_string(kFlashBytes) + " bytes" : bytes;
}

// --- JSON ---------------------------------------------------------------------------------------

nlohmann::json JsonOf(const std::optional<std::string>& text) {
  return text ? nlohmann::json(*text) : nlohmann::json(nullptr);
}

nlohmann::json HashJson(const std::string& hash) {
  return hash.empty() ? nlohmann::json(nullptr) : nlohmann::json(hash);
}

template <typename Number>
nlohmann::json NumberJson(const std::optional<Number>& number) {
  return number ? nlohmann::json(*number) : nlohmann::json(nullptr);
}

nlohmann::json BuildJson(const BuildPlaces& places) {
  return {{"in_file", JsonOf(places.inFile)},
          {"in_image", JsonOf(places.inImage)},
          {"in_head", JsonOf(places.inHead)}};
}

nlohmann::json PredictionJson(const Prediction& prediction) {
  const bool ends =
      prediction.end == Prediction::End::kExit || prediction.end == Prediction::End::kException;
  return {{"exit_code", ends ? nlohmann::json(prediction.exitCode) : nlohmann::json(nullptr)},
          {"endless", prediction.end == Prediction::End::kNever},
          {"text", prediction.text}};
}

nlohmann::json TargetJson(const TargetReport& target) {
  return {{"target", target.target},
          {"fit", !target.unfit},
          {"reason", JsonOf(target.unfit)},
          {"tarnwick",
           {{"over_blank", PredictionJson(target.overBlank)},
            {"over_same", PredictionJson(target.overSame)},
            {"over_other", PredictionJson(target.overOther)},
            {"over_dump",
             target.overDump ? PredictionJson(*target.overDump) : nlohmann::json(nullptr)}}}};
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
  text << "file: " << Quoted(image.path) << ", a regular file of " << image.fileBytes << " bytes\n"
       << "SHA-256 of the file: "
       << (image.fileSha256.empty() ? "not read whole" : image.fileSha256) << '\n'
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
  text << (report.unfit ? "unfit: " + *report.unfit : "fit") << '\n';
  return text.str();
}

nlohmann::json ImageJson(const ImageReport& report) {
  const ImageFile& image = report.image;
  nlohmann::json targets = nlohmann::json::array();
  for (const TargetReport& target : report.targets) {
    targets.push_back(TargetJson(target));
  }
  return {{"command", "image"},
          {"file",
           {{"path", image.path},
            {"bytes", image.fileBytes},
            {"sha256", HashJson(image.fileSha256)},
            {"packing", PackingJson(image.packing)},
            {"packing_end", NumberJson(image.packingEnd)}}},
          {"image",
           {{"bytes", image.bytes.size()},
            {"sha256", HashJson(image.sha256)},
            {"too_large", image.tooLarge},
            {"gzip_in_gzip", image.gzipInGzip},
            {"format", FormatJson(image.format)},
            {"synchronisation_word", NumberJson(report.synchronisationWord)}}},
          {"build_date", BuildJson(report.buildDate)},
          {"time_stamp", BuildJson(report.timeStamp)},
          {"targets", targets},
          {"verdict", report.unfit ? "unfit" : "fit"},
          {"reason", JsonOf(report.unfit)},
          {"exit_code", report.unfit ? 1 : 0}};
}

}  // namespace companion
