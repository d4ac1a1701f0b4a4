#pragma once

#include <ostream>
#include <span>

namespace orvane {

/// The image maker, orvane-image: writes one made-up but valid image to a file.
/// @param words  the command line without the program's name
/// @param out    the help or the version, nothing else
/// @param err    one line on failure, starting with "orvane-image: ", and after a usage error a
///               second one that names --help
/// @return 0 done, 1 the file could not be written, 2 the command line is wrong
int RunImageMaker(std::span<const char* const> words, std::ostream& out, std::ostream& err);

}  // namespace orvane
