#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "tests/e2e/VirtualInstrument.h"

/// Image files that a user can give to the program.
namespace program_test {

/// Where the text in a boot header ends: a shorter file has none.
inline constexpr std::size_t kHeaderBytes = 152;

/// How much of the build that it looks for the program finds in a file, compressed or not.
enum class Shows { kBuild, kBootHeaderAlone, kNothing };

struct ImageKind {
  const char* name;
  std::size_t bytes;            // of the plain image
  Bytes (*file)(const Bytes&);  // contents of the file, made from the plain image
  Shows shows = Shows::kBuild;
  bool boots = true;               // whether an FPGA starts from what is written
  Bytes (*contents)(const Bytes&)  // what zlib returns
      = [](const Bytes& plain) { return plain; };
};

std::ostream& operator<<(std::ostream& out, const ImageKind& kind);

/// Plain images around every boundary, and compressed ones that zlib reads to their end.
std::vector<ImageKind> ReadableImages();

/// A gzip-compressed image. The length of its member's name is such that the program finds neither
/// a build nor a '#' in the file, whatever bytes zlib makes of the image.
Bytes Gzipped(const Bytes& plain);

/// A gzip-compressed image whose checksum is wrong: zlib refuses it after it has read all of it.
Bytes SpoiltGzip(const Bytes& plain);

/// A plain image cut to so many bytes, also below what a whole one takes.
Bytes CutTo(std::size_t bytes, Bytes image);

}  // namespace program_test
