#include "companion/image/Quoted.h"

#include <nlohmann/json.hpp>

namespace companion {

std::string Quoted(std::string_view text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace companion
