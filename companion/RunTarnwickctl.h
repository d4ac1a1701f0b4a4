#pragma once

#include <iosfwd>
#include <span>

namespace companion {

/// One run of `tarnwickctl`.
/// @param words       without the program's name
/// @param out,err     its consoles
/// @param isTerminal  `err` is one
/// @return the exit code
int RunTarnwickctl(std::span<const char* const> words,
                   std::ostream& out,
                   std::ostream& err,
                   bool isTerminal);

}  // namespace companion
