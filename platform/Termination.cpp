#include "platform/Termination.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include "platform/Download.h"

namespace platform {
namespace {

std::atomic<int> s_signal{0};
pthread_t s_mainThread;
// The terminal state to restore on a forced end; written only on the main
// thread before the state changes, read in the handler.
termios s_savedTerminal;
std::atomic<bool> s_haveTerminal{false};
std::atomic<bool> s_forwarded{false};

void ForceEnd(int firstSignal)
{
    if (s_haveTerminal.load())
        tcsetattr(STDIN_FILENO, TCSANOW, &s_savedTerminal);
    _exit(128 + firstSignal);
}

void OnTerminationSignal(int signal)
{
    const int saved = errno;
    int first = 0;
    if (s_signal.compare_exchange_strong(first, signal)) {
        // A download in flight would hold the program up to its stall limit.
        CancelDownloads();
        // Another thread may have taken the signal; the main thread is the
        // one blocked in a read or a wait, so it gets its own interruption.
        if (!pthread_equal(pthread_self(), s_mainThread)) {
            s_forwarded = true;
            pthread_kill(s_mainThread, signal);
        }
    } else if (s_forwarded.exchange(false) && pthread_equal(pthread_self(), s_mainThread)) {
        // The first signal, handed on to the main thread: nothing more.
    } else {
        ForceEnd(first);
    }
    errno = saved;
}

}  // namespace

void CatchTerminationSignals()
{
    s_mainThread = pthread_self();
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = &OnTerminationSignal;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a read or poll that the signal interrupts returns, so
    // the program notices at once instead of after its next input.
    action.sa_flags = 0;
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

int TerminationSignal()
{
    return s_signal.load();
}

int ExitStatusAfterSignal(int normal)
{
    const int signal = s_signal.load();
    return signal != 0 ? 128 + signal : normal;
}

void RememberTerminalMode(const void* termiosState, unsigned size)
{
    if (size != sizeof(termios))
        return;
    std::memcpy(&s_savedTerminal, termiosState, sizeof(termios));
    s_haveTerminal = true;
}

void ForgetTerminalMode()
{
    s_haveTerminal = false;
}

}  // namespace platform
