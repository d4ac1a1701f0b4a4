#pragma once

#include "companion/report/Results.h"

namespace companion::test {

/// A wend whose image was written in its second attempt and taken into use.
UpdateResult WrittenWend();

/// A reading of a module whose flash agrees with the image.
ReadingFacts PlainReading();

}  // namespace companion::test
