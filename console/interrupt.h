// Ctrl-C and the end of standard input both end the running command: a line
// break (the catalogue text of "\n") and exit status 0, with everything
// printed before intact and in order.
#pragma once

// The SIGINT handler. Async-signal-safe: while the tool waits for input
// (standard output already flushed) it writes the line break and ends the
// process; at any other moment it only records the interrupt, and the next
// wait for input ends the process instead.
void InterruptHandler(int signalNumber);

// Installs InterruptHandler for SIGINT; fetches the line break text first so
// that the handler never has to look anything up.
void InstallInterruptHandler();

// Ends the process as an interrupt does. Used when standard input ends.
[[noreturn]] void EndAsInterrupted();

// Bracket every blocking read of standard input; BeginInputWait flushes
// standard output and honours an interrupt that arrived since the last read.
void BeginInputWait();
void EndInputWait();

// The same for a wait on another process (the index's lock, the task
// store's wait for a writer): Ctrl-C ends the command at once there too.
void BeginWaitForOthers();
void EndWaitForOthers();

// Runs `wait` between BeginWaitForOthers and EndWaitForOthers.
template <typename Wait>
auto WaitingForOthers(Wait&& wait) {
  BeginWaitForOthers();
  const auto result = wait();
  EndWaitForOthers();
  return result;
}
