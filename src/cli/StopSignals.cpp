#include "cli/StopSignals.h"

#include <QtGlobal>
#include <csignal>

namespace kavri::cli {

namespace {

// Only a lock-free atomic and a sig_atomic_t may be touched from a signal handler.
static_assert(std::atomic<bool>::is_always_lock_free);
std::atomic<bool> g_stop{false};
volatile std::sig_atomic_t g_signal = 0;

extern "C" void onStopSignal(int sig)
{
    g_signal = sig;
    g_stop.store(true);
}

constexpr int kSignals[] = {
    SIGINT,
    SIGTERM,
#ifdef Q_OS_UNIX
    SIGHUP,
#endif
};

#ifdef Q_OS_UNIX
struct sigaction g_previous[std::size(kSignals)];
#else
void (*g_previous[std::size(kSignals)])(int);
#endif

} // namespace

StopSignals::StopSignals()
{
    g_signal = 0;
    g_stop.store(false);
    for (size_t i = 0; i < std::size(kSignals); ++i) {
#ifdef Q_OS_UNIX
        struct sigaction sa {};
        sa.sa_handler = onStopSignal;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART; // reads and writes carry on; the flag is checked between chunks
        sigaction(kSignals[i], &sa, &g_previous[i]);
#else
        g_previous[i] = std::signal(kSignals[i], onStopSignal);
#endif
    }
}

StopSignals::~StopSignals()
{
    for (size_t i = 0; i < std::size(kSignals); ++i) {
#ifdef Q_OS_UNIX
        sigaction(kSignals[i], &g_previous[i], nullptr);
#else
        std::signal(kSignals[i], g_previous[i]);
#endif
    }
}

const std::atomic<bool> *StopSignals::flag() const { return &g_stop; }

int StopSignals::signalNumber() const { return int(g_signal); }

} // namespace kavri::cli
