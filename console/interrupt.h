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

// Test hook for in-process fuzzing, never set by the tool: when set,
// EndAsInterrupted calls it once the line break is written, instead of ending
// the process. The hook must not return (a fuzz target throws from it, so that
// the end of one input ends only that input's command); if it does, the
// process ends as usual. The SIGINT handler never uses it.
using EndOfInputHook = void (*)();
void SetEndOfInputHookForTesting(EndOfInputHook hook);

// Bracket every blocking read of standard input; BeginInputWait flushes
// standard output and honours an interrupt that arrived since the last read.
void BeginInputWait();
void EndInputWait();
