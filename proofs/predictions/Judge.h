#pragma once

#include <string>

#include "companion/image/Prediction.h"
#include "proofs/predictions/Triple.h"

namespace predictions {

/// One run of the program on a triple, beside what was predicted.
struct Comparison {
  companion::Prediction prediction;
  std::string wrong;  ///< what the run did instead; empty: what was predicted
};

/// Predicts how the program ends, and runs it on a virtual instrument of its own.
/// @throw std::exception when the run cannot be made
Comparison Compare(const Triple& triple);

}  // namespace predictions
