#pragma once

#include <string>

#include "companion/report/Results.h"

namespace companion {

/// A result as lines for a person, the verdict last. What is not known has no line.
std::string ReadText(const ReadResult& result);
std::string VerifyText(const VerifyResult& result);
std::string UpdateText(const UpdateResult& result);

}  // namespace companion
