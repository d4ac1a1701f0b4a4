#include "simulator/images/ImageMaker.h"

#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "simulator/images/Gzip.h"

namespace orvane {
namespace {

constexpr int kExitIo = 1;
constexpr int kExitUsage = 2;
constexpr std::size_t kMaxBytes = 1U << 30;  // far beyond any flash; more is a slip of the keyboard

constexpr std::string_view kHelp =
    "Usage: orvane-image zynq --out FILE [--name NAME] [--date DATE] [common options]\n"
    "       orvane-image bitstream --out FILE [--stamp \"YYYY-MM-DD hh:mm:ss\" | --no-stamp]\n"
    "                              [--stamp-word N] [common options]\n"
    "\n"
    "Writes a made-up but valid image for the configuration flash of a virtual module. The same\n"
    "options give the same bytes.\n"
    "\n"
    "zynq: a boot image for wend and pyx2 modules\n"
    "  --name NAME     file name in the boot header (u-boot-vexa.bin)\n"
    "  --date DATE     build date in the boot header, any text (2024-01-01 00:00:00)\n"
    "                  name and date cannot contain a '#' and have room for 74 bytes together\n"
    "\n"
    "bitstream: for dax and pyx1 modules\n"
    "  --stamp TIME    USR_ACCESS time stamp (2024-01-01 00:00:00)\n"
    "  --no-stamp      no time stamp\n"
    "  --stamp-word N  where the time stamp's packet starts, in words of four bytes (24)\n"
    "\n"
    "Common options:\n"
    "  --out FILE      the file to write\n"
    "  --size BYTES    size of the image before compression; K and M after the number mean\n"
    "                  1024 and 1048576 bytes (256K)\n"
    "  --seed N        selects the pseudo-random contents, 0 to 4294967295 (1)\n"
    "  --gzip          compress the file\n"
    "  --help          show this text and exit\n";

enum Option : int {
  kOut = 1,
  kName,
  kDate,
  kStamp,
  kNoStamp,
  kStampWord,
  kSize,
  kSeed,
  kGzip,
  kHelpOption
};

constexpr option kZynqOptions[] = {{"out", required_argument, nullptr, kOut},
                                   {"name", required_argument, nullptr, kName},
                                   {"date", required_argument, nullptr, kDate},
                                   {"size", required_argument, nullptr, kSize},
                                   {"seed", required_argument, nullptr, kSeed},
                                   {"gzip", no_argument, nullptr, kGzip},
                                   {"help", no_argument, nullptr, kHelpOption},
                                   {}};
constexpr option kBitstreamOptions[] = {{"out", required_argument, nullptr, kOut},
                                        {"stamp", required_argument, nullptr, kStamp},
                                        {"no-stamp", no_argument, nullptr, kNoStamp},
                                        {"stamp-word", required_argument, nullptr, kStampWord},
                                        {"size", required_argument, nullptr, kSize},
                                        {"seed", required_argument, nullptr, kSeed},
                                        {"gzip", no_argument, nullptr, kGzip},
                                        {"help", no_argument, nullptr, kHelpOption},
                                        {}};

struct Request {
  bool help = false;
  bool bitstream = false;
  std::string file;
  bool gzip = false;
  bool stampGiven = false;
  bool stampWordGiven = false;
  bool noStamp = false;
  ZynqImageOptions zynq;
  BitstreamOptions bits{.userAccess = PackStamp({.year = 2024})};
};

std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  quoted += text;
  quoted += '\'';
  return quoted;
}

[[noreturn]] void Reject(const std::string& why) { throw std::invalid_argument(why); }

/// The whole of `text` as a decimal number of at most `max`.
std::uint64_t ParseNumber(std::string_view name, std::string_view text, std::uint64_t max) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > max) {
    Reject(std::string(name) + ": " + Quoted(text) + " is not a number from 0 to " +
           std::to_string(max));
  }
  return number;
}

std::size_t ParseSize(std::string_view text) {
  const char suffix = text.empty() ? '\0' : text.back();
  const unsigned shift = suffix == 'M' ? 20 : suffix == 'K' ? 10 : 0;
  const std::string_view digits = shift != 0 ? text.substr(0, text.size() - 1) : text;
  std::size_t bytes = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), bytes);
  if (error != std::errc() || end != digits.data() + digits.size() || bytes > kMaxBytes >> shift) {
    Reject("--size: " + Quoted(text) + " is not a size of at most 1024M");
  }
  return bytes << shift;
}

/// "YYYY-MM-DD hh:mm:ss", with all its digits.
std::uint32_t ParseStamp(const std::string& text) {
  constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd";
  bool wellFormed = text.size() == kShape.size();
  for (std::size_t i = 0; wellFormed && i < text.size(); ++i) {
    wellFormed = kShape[i] == 'd' ? text[i] >= '0' && text[i] <= '9' : text[i] == kShape[i];
  }
  if (!wellFormed) {
    Reject("--stamp: " + Quoted(text) + " is not of the form YYYY-MM-DD hh:mm:ss");
  }
  const auto number = [&text](std::size_t at, std::size_t digits) {
    return std::stoi(text.substr(at, digits));
  };
  return PackStamp({.year = number(0, 4),
                    .month = number(5, 2),
                    .day = number(8, 2),
                    .hour = number(11, 2),
                    .minute = number(14, 2),
                    .second = number(17, 2)});
}

void Apply(int found, Request& request) {
  const std::string text = optarg != nullptr ? optarg : "";
  switch (found) {
    case kOut:
      request.file = text;
      break;
    case kName:
      request.zynq.fileName = text;
      break;
    case kDate:
      request.zynq.buildDate = text;
      break;
    case kStamp:
      request.stampGiven = true;
      request.bits.userAccess = ParseStamp(text);
      break;
    case kNoStamp:
      request.noStamp = true;
      break;
    case kStampWord:
      request.stampWordGiven = true;
      request.bits.stampWordOffset = ParseNumber("--stamp-word", text, kMaxBytes / 4);
      break;
    case kSize:
      request.zynq.bytes = request.bits.bytes = ParseSize(text);
      break;
    case kSeed:
      request.zynq.seed = request.bits.seed = static_cast<std::uint32_t>(
          ParseNumber("--seed", text, std::numeric_limits<std::uint32_t>::max()));
      break;
    case kGzip:
      request.gzip = true;
      break;
    default:
      request.help = true;
      break;
  }
}

/// @throw std::invalid_argument with a text for the user
Request Parse(int argc, char** argv) {
  Request request;
  const std::string_view kind = argc > 1 ? argv[1] : "";
  if (kind == "--help") {
    request.help = true;
    return request;
  }
  if (kind != "zynq" && kind != "bitstream") {
    Reject(kind.empty() ? "say zynq or bitstream"
                        : Quoted(kind) + " is neither zynq nor bitstream");
  }
  request.bitstream = kind == "bitstream";

  // The word takes the place of the program's name.
  const int count = argc - 1;
  char** const words = argv + 1;
  optind = 0;  // a fresh start, also for a second call
  opterr = 0;
  for (;;) {
    const int at = std::max(optind, 1);
    const int found = getopt_long(
        count, words, "+:", request.bitstream ? kBitstreamOptions : kZynqOptions, nullptr);
    if (found == -1) {
      break;
    }
    if (found == ':') {
      Reject(std::string(words[at]) + " needs a value");
    }
    if (found == '?') {
      Reject(Quoted(words[at]) + " is not an option of " + std::string(kind));
    }
    Apply(found, request);
  }
  if (request.help) {
    return request;
  }
  if (optind < count) {
    Reject(Quoted(words[optind]) + " is one word too many");
  }
  if (request.file.empty()) {
    Reject("--out FILE is missing");
  }
  if (request.noStamp && (request.stampGiven || request.stampWordGiven)) {
    Reject("--no-stamp excludes --stamp and --stamp-word");
  }
  if (request.noStamp) {
    request.bits.userAccess.reset();
  }
  return request;
}

/// @return 0, or the errno of what failed
int WriteFile(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    return errno;
  }
  int error = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() ? 0 : errno;
  if (std::fclose(file) != 0 && error == 0) {
    error = errno;
  }
  return error;
}

}  // namespace

int RunImageMaker(int argc, char** argv, std::ostream& out, std::ostream& err) {
  try {
    const Request request = Parse(argc, argv);
    if (request.help) {
      out << kHelp << std::flush;
      return 0;
    }
    std::vector<std::uint8_t> image =
        request.bitstream ? MakeBitstream(request.bits) : MakeZynqImage(request.zynq);
    if (request.gzip) {
      image = Gzip(image);
    }
    if (const int error = WriteFile(request.file, image); error != 0) {
      err << "orvane-image: cannot write '" << request.file
          << "': " << std::generic_category().message(error) << std::endl;
      return kExitIo;
    }
    return 0;
  } catch (const std::invalid_argument& wrong) {
    err << "orvane-image: " << wrong.what() << " (see orvane-image --help)" << std::endl;
    return kExitUsage;
  } catch (const std::exception& failed) {
    err << "orvane-image: " << failed.what() << std::endl;
    return kExitIo;
  }
}

}  // namespace orvane
