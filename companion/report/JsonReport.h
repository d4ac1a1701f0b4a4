#pragma once

#include <string>

#include "companion/report/Results.h"

namespace companion {

/// A result as one JSON object in lines, with a newline at its end. Texts that are no UTF-8 are
/// replaced. The keys are those of docs/companion.md.
std::string ReadJson(const ReadResult& result);
std::string VerifyJson(const VerifyResult& result);
std::string UpdateJson(const UpdateResult& result);

}  // namespace companion
