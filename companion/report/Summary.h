#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "companion/report/Results.h"

namespace companion {

/// What a person or a script wants to know of a result at a glance. Nothing where it is not known.

/// One word for an exit code of a command: "proven", "read", "equal", "differs", "not-proven",
/// "refused", "power-cycle", "locked", "stopped" or "unreachable".
/// @param command  "read", "verify" or "update"
std::string_view VerdictWord(std::string_view command, ExitCode exit);

/// The chip, as the last reading that identified it shows it.
std::optional<Chip> ChipOf(const ModuleResult& result);

/// DONE before the module was touched.
DoneLine DoneBefore(const ModuleResult& result);

/// DONE at the end.
DoneLine DoneAfter(const ModuleResult& result);
DoneLine DoneAfter(const UpdateResult& result);

/// The endpoint at the end.
Endpoint EndpointAfter(const ModuleResult& result);
Endpoint EndpointAfter(const UpdateResult& result);

/// "unknown", "low" or "high"
std::string_view NameOf(DoneLine done);
/// "none", "unknown", "absent", "disabled" or "enabled"
std::string_view NameOf(Endpoint endpoint);
/// "not-read", "other", "image", "not-the-image" or "not-known"
std::string_view NameOf(FlashHolds holds);
/// "no", "found", "taken" or "at-power-on"
std::string_view NameOf(InUse inUse);

/// "20ba18"
std::string IdOf(const Chip& chip);

}  // namespace companion
