#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "companion/image/ImageFile.h"

namespace companion {

/// What the words of `tarnwickctl` ask for.
struct Options {
  enum class Command { kImage, kRead, kVerify, kUpdate };

  std::optional<std::string> answer;  ///< to --help or --version: print it and do nothing
  Command command = Command::kImage;
  std::string target;  ///< "wend", "dax", "pyx1" or "pyx2"; empty: none was given
  unsigned slot = 0;
  std::string file;                             ///< FILE or IMAGE
  std::optional<std::string> dump;              ///< of --flash
  std::size_t length = kFlashBytes;             ///< bytes from address 0, 1 to kFlashBytes
  std::string sha256;                           ///< 64 hexadecimal digits; empty: none was given
  unsigned attempts = 3;                        ///< at least 1
  std::optional<std::chrono::seconds> timeout;  ///< at least 1 s
  bool restart = false;
  bool force = false;
  std::string program;  ///< path of `tarnwick`; empty: none was given
  std::string state = "/var/lib/tarnwick";
  unsigned waitSeconds = 0;
  bool json = false;
};

/// @param words  without the program's name
/// @throw cli::UsageError
Options ParseOptions(std::span<const char* const> words);

/// @return "image", "read", "verify" or "update"
const char* NameOf(Options::Command command);

}  // namespace companion
