#include "simulator/host/UnhitReport.h"

#include "cli/CommandLine.h"
#include "simulator/guard/ExitStatus.h"

namespace orvane {

int ReportUnhit(const Options& options,
                const std::vector<std::string>& rules,
                int status,
                std::ostream& out) {
  if (options.allowUnhit || (rules.empty() && options.keysWithoutEffect.empty())) {
    return status;
  }
  const std::string end = "; COMMAND ended with " + std::to_string(status) + "\n";
  for (const std::string& rule : rules) {
    out << "orvane-sim: fault rule " << cli::Quoted(rule) << " never hit anything" << end;
  }
  for (const KeyWithoutEffect& key : options.keysWithoutEffect) {
    out << "orvane-sim: key " << cli::Quoted(key.text) << " has no effect on " << key.module << end;
  }
  out.flush();
  return kInstrumentFailed;
}

}  // namespace orvane
