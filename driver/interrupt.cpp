#include "driver/interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <initializer_list>

namespace {

volatile sig_atomic_t g_signal = 0;

// Only records the signal: the job notices it between chunks and cleans up
// through its own exits, so nothing is left half done.
void record(int signo) {
    if (g_signal == 0) g_signal = signo;
}

}  // namespace

void catch_interruptions() {
    struct sigaction action = {};
    action.sa_handler = record;
    sigemptyset(&action.sa_mask);
    for (int signo : {SIGINT, SIGTERM, SIGHUP}) sigaction(signo, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool interrupted() { return g_signal != 0; }

void end_by_interruption() {
    const int signo = g_signal;
    signal(signo, SIG_DFL);
    sigset_t unblock;
    sigemptyset(&unblock);
    sigaddset(&unblock, signo);
    sigprocmask(SIG_UNBLOCK, &unblock, nullptr);
    raise(signo);
    std::_Exit(128 + signo);
}
