#pragma once

/// Ends the process unless `condition` holds; the fuzzer reports that as a finding.
/// @param rule  what does not hold then
void Require(bool condition, const char* rule);
