#include "companion/image/ModuleTypes.h"

#include <stdexcept>
#include <string>

namespace companion {

const ModuleType& TypeOf(std::string_view target) {
  for (const ModuleType& type : kModuleTypes) {
    if (type.target == target) {
      return type;
    }
  }
  throw std::invalid_argument("no module type: '" + std::string(target) + "'");
}

}  // namespace companion
