#pragma once

#include <string>

#include "companion/image/ImageFile.h"
#include "companion/report/Results.h"
#include "companion/update/Sequence.h"

namespace companion {

/// What `verify` is asked to do.
struct VerifyRequest {
  std::string target;
  unsigned slot = 0;
  const ImageFile& image;  ///< borrowed
  unsigned waitSeconds = 0;
};

/// `verify`: compares what the flash of a module holds with an image, in the image's length. Changes
/// nothing there.
class VerifySequence : private Sequence {
 public:
  VerifySequence(VerifyRequest request, Services services);

  VerifyResult Run();

  /// A signal asks the command to stop. May be called in every callback of the services and while
  /// an operation runs.
  /// @param signal  its number
  void Signalled(int signal);

 private:
  Ending RunSteps();
  Ending Compare();

  VerifyRequest request_;
  VerifyResult verify_;
};

}  // namespace companion
