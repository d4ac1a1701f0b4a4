#pragma once

/// Ends the process, as a finding of the fuzzer, unless `condition` holds.
/// @param rule  what does not hold then
void Require(bool condition, const char* rule);
