// Lets a background pass run only while the window does not play: the pass asks before each unit of
// work and waits while playback holds the gate, so that it never takes a core from the shown frames
// (throttling would still take some; on two cores any share shows in the frame rate).
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

namespace kavri::ui {

class PassGate {
public:
    // Any thread (the window while it starts and stops playing).
    void setHeld(bool held);
    bool held() const;
    // Ends the pass: a waiting pass is woken and proceed() answers false from now on.
    void stop();
    // Before a new pass: not stopped; whether it is held stays as it is.
    void rearm();
    bool stopped() const;

    // The pass's thread: true at once unless held, else waits until released (true) or stopped (false).
    // While it waits, waiting() is true, and onWait (if set) is called with true on entering and false on
    // leaving, on the pass's thread.
    bool proceed();
    bool waiting() const;
    void setOnWait(std::function<void(bool)> fn);

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_held = false, m_stopped = false, m_waiting = false;
    std::function<void(bool)> m_onWait;
};

} // namespace kavri::ui
