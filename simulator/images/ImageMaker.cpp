#include "simulator/images/ImageMaker.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "cli/CommandLine.h"
#include "simulator/images/Bitstream.h"
#include "simulator/images/BootImage.h"
#include "simulator/images/Gzip.h"

namespace orvane {
namespace {

constexpr int kExitIo = 1;
constexpr const char* kProgram = "orvane-image";
constexpr std::size_t kMaxBytes = 1U << 30;  // far more than any flash holds

constexpr std::string_view kHelp =
    "Usage: orvane-image zynq --out FILE [--name NAME] [--date DATE] [common options]\n"
    "       orvane-image bitstream --out FILE [--stamp \"YYYY-MM-DD hh:mm:ss\" | --no-stamp]\n"
    "                              [--stamp-word N] [common options]\n"
    "\n"
    "Writes a made-up but valid image for the configuration flash of a virtual module. The same\n"
    "options give the same bytes. The value of an option can follow '=' as well: --out=FILE.\n"
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
    "  --help          show this text and exit\n"
    "  --version       show the version and exit\n";

struct Request {
  bool zynq = false;
  bool bitstream = false;
  std::string file;
  bool gzip = false;
  bool stampGiven = false;
  bool stampWordGiven = false;
  bool noStamp = false;
  ZynqImageOptions bootImage;
  BitstreamOptions bits{.userAccess = PackStamp({.year = 2024})};
};

using cli::Quoted;

[[noreturn]] void Reject(const std::string& why) { throw std::invalid_argument(why); }

/// @return the whole of `text` as a decimal number of at most `max`
/// @throw std::invalid_argument
std::uint64_t ParseNumber(std::string_view text, std::uint64_t max) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > max) {
    Reject(Quoted(text) + " is not a number from 0 to " + std::to_string(max));
  }
  return number;
}

std::size_t ParseSize(std::string_view text, std::size_t min) {
  const char suffix = text.empty() ? '\0' : text.back();
  const unsigned shift = suffix == 'M' ? 20 : suffix == 'K' ? 10 : 0;
  const std::string_view digits = shift != 0 ? text.substr(0, text.size() - 1) : text;
  std::size_t bytes = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), bytes);
  const bool isNumber = error == std::errc() && end == digits.data() + digits.size();
  if (!isNumber || bytes > kMaxBytes >> shift || (bytes << shift) < min) {
    Reject(Quoted(text) + " is not a size from " + std::to_string(min) + " bytes to 1024M");
  }
  return bytes << shift;
}

/// Whether `text` is "YYYY-MM-DD hh:mm:ss", with all its digits.
bool HasShapeOfStamp(std::string_view text) {
  constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd";
  return std::equal(
      text.begin(), text.end(), kShape.begin(), kShape.end(), [](char is, char shape) {
        return shape == 'd' ? is >= '0' && is <= '9' : is == shape;
      });
}

std::uint32_t ParseStamp(const std::string& text) {
  if (!HasShapeOfStamp(text)) {
    Reject(Quoted(text) + " is not of the form YYYY-MM-DD hh:mm:ss");
  }
  const auto number = [&text](std::size_t at, std::size_t digits) {
    return std::stoi(text.substr(at, digits));
  };
  try {
    return PackStamp({.year = number(0, 4),
                      .month = number(5, 2),
                      .day = number(8, 2),
                      .hour = number(11, 2),
                      .minute = number(14, 2),
                      .second = number(17, 2)});
  } catch (const std::invalid_argument& error) {
    Reject(Quoted(text) + ": " + error.what());
  }
}

void AddZynqOptions(cli::OptionSet& options, Request& request) {
  options.AddOption("--name",
                    [&](const std::string& value) { request.bootImage.fileName = value; });
  options.AddOption("--date",
                    [&](const std::string& value) { request.bootImage.buildDate = value; });
}

void AddBitstreamOptions(cli::OptionSet& options, Request& request) {
  options.AddOption("--stamp", [&](const std::string& value) {
    request.stampGiven = true;
    request.bits.userAccess = ParseStamp(value);
  });
  options.AddFlag("--no-stamp", request.noStamp);
  options.AddOption("--stamp-word", [&](const std::string& value) {
    request.stampWordGiven = true;
    request.bits.stampWordOffset = static_cast<std::size_t>(ParseNumber(value, kMaxBytes / 4));
  });
}

void AddCommonOptions(cli::OptionSet& options, std::size_t minBytes, Request& request) {
  options.AddOption("--out", [&](const std::string& value) {
    if (value.empty()) {
      Reject("'' is not a file name");
    }
    request.file = value;
  });
  options.AddOption("--size", [&request, minBytes](const std::string& value) {
    request.bootImage.bytes = request.bits.bytes = ParseSize(value, minBytes);
  });
  options.AddOption("--seed", [&](const std::string& value) {
    request.bootImage.seed = request.bits.seed =
        static_cast<std::uint32_t>(ParseNumber(value, std::numeric_limits<std::uint32_t>::max()));
  });
  options.AddFlag("--gzip", request.gzip);
}

/// @return what to print instead, for --help and --version
/// @throw cli::UsageError
std::optional<std::string> Read(std::span<const char* const> words, Request& request) {
  cli::CommandLine line(kProgram, kHelp);
  cli::OptionSet& zynq = line.AddCommand("zynq", request.zynq);
  AddZynqOptions(zynq, request);
  AddCommonOptions(zynq, kZynqImageMinBytes, request);
  cli::OptionSet& bitstream = line.AddCommand("bitstream", request.bitstream);
  AddBitstreamOptions(bitstream, request);
  AddCommonOptions(bitstream, kBitstreamMinBytes, request);

  std::optional<std::string> answer = line.Read(words);
  if (answer) {
    return answer;
  }
  if (request.file.empty()) {
    throw cli::UsageError("--out FILE is missing");
  }
  if (request.noStamp && (request.stampGiven || request.stampWordGiven)) {
    throw cli::UsageError(std::string("--no-stamp excludes ") +
                          (request.stampGiven ? "--stamp" : "--stamp-word"));
  }
  if (request.noStamp) {
    request.bits.userAccess.reset();
  }
  return std::nullopt;
}

/// @throw cli::UsageError
std::vector<std::uint8_t> MakeImage(const Request& request) {
  try {
    std::vector<std::uint8_t> image =
        request.bitstream ? MakeBitstream(request.bits) : MakeZynqImage(request.bootImage);
    return request.gzip ? Gzip(image) : image;
  } catch (const std::invalid_argument& error) {
    throw cli::UsageError(error.what());
  }
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

int RunImageMaker(std::span<const char* const> words, std::ostream& out, std::ostream& err) {
  try {
    Request request;
    if (const std::optional<std::string> answer = Read(words, request)) {
      out << *answer << std::flush;
      return 0;
    }
    if (const int error = WriteFile(request.file, MakeImage(request)); error != 0) {
      err << kProgram << ": cannot write " << Quoted(request.file) << ": "
          << std::generic_category().message(error) << std::endl;
      return kExitIo;
    }
    return 0;
  } catch (const cli::UsageError& wrong) {
    err << cli::UsageText(kProgram, wrong.what()) << std::flush;
    return cli::kExitUsage;
  } catch (const std::exception& failed) {
    err << kProgram << ": " << failed.what() << std::endl;
    return kExitIo;
  }
}

}  // namespace orvane
