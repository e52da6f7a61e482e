// The one-shot modes of schscand that look at the service rather than run
// it: --status, --next, --quarantine and --restore. Each prints to standard
// output, complains on standard error, and returns the exit status.
#pragma once

#include "service/service_options.h"

namespace service {

// A header line, then NAME OWNER NEXT LAST RESULT for each stored scan.
int PrintStatus();

// The next --count run times of --next NAME, after --from or now.
int PrintNextRuns(const ServiceOptions& options);

// One line per quarantined file: ID, date, original path, signature.
int ListQuarantine();

int RestoreQuarantined(const ServiceOptions& options);

}  // namespace service
