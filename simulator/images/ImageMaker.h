#pragma once

#include <ostream>

namespace orvane {

/// The image maker, orvane-image: writes one made-up but valid image to a file.
/// @param argv  as main gets it; getopt may reorder it
/// @param out   the help, nothing else
/// @param err   one line on failure, starting with "orvane-image: "
/// @return 0 done, 1 the file could not be written, 2 the command line is wrong
int RunImageMaker(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace orvane
