#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "tests/e2e/VirtualInstrument.h"

/// Files that a user may hand to the program.
namespace program_test {

/// Where the text in a boot header ends: no shorter file has one.
inline constexpr std::size_t kHeaderBytes = 152;

/// What the program finds in a file, compressed or not, of the build that it looks for.
enum class Shows { kBuild, kBootHeaderAlone, kNothing };

struct ImageKind {
  const char* name;
  std::size_t bytes;            // of the plain image
  Bytes (*file)(const Bytes&);  // what stands in the file, made from the plain image
  Shows shows = Shows::kBuild;
  bool boots = true;               // whether an FPGA starts from what is written
  Bytes (*contents)(const Bytes&)  // what zlib hands out
      = [](const Bytes& plain) { return plain; };
};

std::ostream& operator<<(std::ostream& out, const ImageKind& kind);

/// Plain images around every boundary, and compressed ones that zlib reads to their end.
std::vector<ImageKind> ReadableImages();

/// A gzip-compressed image. Its member has a name, behind which no build is found in the file, and no
/// '#', whichever bytes zlib makes of the image.
Bytes Gzipped(const Bytes& plain);

/// A gzip-compressed image whose check does not match: zlib refuses it when it has read it all.
Bytes SpoiltGzip(const Bytes& plain);

/// A plain image cut to so many bytes, also below what a whole one takes.
Bytes CutTo(std::size_t bytes, Bytes image);

}  // namespace program_test
