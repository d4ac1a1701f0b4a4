#include "companion/module/ModulePlace.h"

#include <string_view>

namespace companion {

bool ModulePlace::HasPsMode() const {
  const std::string_view word = target.word;
  return word == "dax" || word == "pyx1";
}

}  // namespace companion
