// Ctrl-C (SIGINT), SIGTERM and SIGHUP during a long job: while a StopSignals lives they only set a flag
// that the job checks between chunks, so that it can remove what it wrote before the program ends.
#pragma once

#include <atomic>

namespace kavri::cli {

class StopSignals {
public:
    StopSignals();  // installs the handlers and clears the flag
    ~StopSignals(); // puts the previous handlers back
    StopSignals(const StopSignals &) = delete;
    StopSignals &operator=(const StopSignals &) = delete;

    const std::atomic<bool> *flag() const;
    // The signal that arrived, 0 when none did.
    int signalNumber() const;
    // The exit status of a program ended by that signal, as shells report it (128 + the number).
    int exitStatus() const { return 128 + signalNumber(); }
};

} // namespace kavri::cli
