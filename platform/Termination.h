#pragma once

// Ending a command-line program cleanly on SIGINT, SIGTERM and SIGHUP.
//
// The first such signal is only recorded: blocking calls of the main thread
// return early (the signal is not restarted), the program's loops see
// TerminationSignal() and unwind, and the destructors stop play, restore the
// terminal and remove the temporaries. A second signal, for a program that
// does not end, restores the terminal and ends the process at once.
// Call CatchTerminationSignals on the main thread before starting others.
namespace platform {

void CatchTerminationSignals();

// The signal that asked the program to end, or 0.
int TerminationSignal();

// The exit status for that signal as shells report it (128 + signal),
// or `normal` when none came.
int ExitStatusAfterSignal(int normal);

// The terminal mode that a forced end restores; the keyboard sets it while
// it holds the terminal in single-key mode. Async-signal-safe to read.
void RememberTerminalMode(const void* termiosState, unsigned size);
void ForgetTerminalMode();

}  // namespace platform
