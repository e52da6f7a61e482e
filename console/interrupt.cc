#include "console/interrupt.h"

#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "console/message_catalogue.h"

namespace {

volatile sig_atomic_t g_waitingForInput = 0;
volatile sig_atomic_t g_interruptPending = 0;
const char* g_lineBreakText = "\n";
size_t g_lineBreakLength = 1;

void WriteAll(const char* text, size_t length) {
  while (length > 0) {
    ssize_t written = write(STDOUT_FILENO, text, length);
    if (written < 0) {
      if (errno == EINTR) continue;
      return;
    }
    text += written;
    length -= static_cast<size_t>(written);
  }
}

}  // namespace

void InterruptHandler(int /*signalNumber*/) {
  if (g_waitingForInput) {
    WriteAll(g_lineBreakText, g_lineBreakLength);
    _exit(0);
  }
  g_interruptPending = 1;
}

void InstallInterruptHandler() {
  g_lineBreakText = GetMessageText("\n");
  g_lineBreakLength = std::strlen(g_lineBreakText);
  struct sigaction action {};
  action.sa_handler = InterruptHandler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  if (sigaction(SIGINT, &action, nullptr) != 0) std::perror("sigaction");
}

void EndAsInterrupted() {
  std::fputs(GetMessageText("\n"), stdout);
  // The running command is abandoned where it stands, its records still in
  // use; like Ctrl-C, the process ends without exit handlers (a sanitized
  // build's leak check among them), once standard output is written out.
  std::fflush(stdout);
  _exit(0);
}

void BeginInputWait() {
  std::fflush(stdout);
  g_waitingForInput = 1;
  if (g_interruptPending) {
    g_waitingForInput = 0;
    EndAsInterrupted();
  }
}

void EndInputWait() { g_waitingForInput = 0; }

void BeginWaitForOthers() { BeginInputWait(); }
void EndWaitForOthers() { EndInputWait(); }
