// schscand: the scan service of Korvane, and its one-shot modes.
#include <signal.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "service/admin_commands.h"
#include "service/daemon.h"
#include "service/scan_run.h"
#include "service/service_options.h"

namespace {

volatile std::sig_atomic_t stopRequested = 0;

void RequestStop(int) { stopRequested = 1; }

// --run stops on SIGTERM and SIGINT (and a closed terminal) with its report
// written; the handler interrupts what waits, so it is not restarted.
void CatchStopSignals() {
  struct sigaction stop {};
  stop.sa_handler = RequestStop;
  sigemptyset(&stop.sa_mask);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &stop, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  service::ServiceOptions options;
  std::string error;
  if (!service::ParseServiceOptions(argc - 1, argv + 1, &options, &error)) {
    std::fprintf(stderr, "schscand: %s\nTry 'schscand --help' for more information.\n",
                 error.c_str());
    return 2;
  }
  if (options.mode == service::Mode::kHelp) {
    std::fputs(service::UsageText(), stdout);
    return 0;
  }
  if (options.mode == service::Mode::kVersion) {
    std::printf("schscand %s\n", SCHSCAN_VERSION);
    return 0;
  }
  if (geteuid() != 0) {
    std::fprintf(stderr, "schscand: only root may do this; see 'schscand --help'\n");
    return 2;
  }
  switch (options.mode) {
    case service::Mode::kStatus:
      return service::PrintStatus();
    case service::Mode::kNext:
      return service::PrintNextRuns(options);
    case service::Mode::kQuarantine:
      return service::ListQuarantine();
    case service::Mode::kRestore:
      return service::RestoreQuarantined(options);
    case service::Mode::kRun: {
      CatchStopSignals();
      service::RunSettings settings;
      settings.databaseDir = options.databaseDir;
      settings.showProgress = isatty(STDOUT_FILENO) == 1;
      return service::RunScanNow(options.scanName, settings, stopRequested);
    }
    default:
      return service::RunDaemon({options.databaseDir, options.startDelay, options.bootIdFile});
  }
}
