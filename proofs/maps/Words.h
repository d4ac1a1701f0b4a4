#pragma once

#include <string>
#include <string_view>

#include "proofs/maps/Scenario.h"

namespace maps {

std::string_view WordFor(Flash flash);

/// "done=1 driven=0x0000 pcie=enabled selector=SPILVDS" for a reader.
std::string StateWords(const std::string& state);

}  // namespace maps
