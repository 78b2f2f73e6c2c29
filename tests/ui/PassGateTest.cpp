// The gate that holds the metrics panel's background pass while the window plays: a pass runs through
// when free, waits (doing no work) while held, goes on when released and ends when stopped. No test
// waits for a time: each waits for the pass to report the state it is in.
#include "ui/PassGate.h"
#include "support/QtWait.h"

#include <QTest>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using kavri::ui::PassGate;

namespace {

// A pass of `units` units, counting those it did; `result` is what the last proceed() said.
struct Pass {
    PassGate &gate;
    int units;
    std::atomic<int> done{0};
    std::atomic<bool> finished{false}, result{true};
    std::thread thread;

    Pass(PassGate &g, int n) : gate(g), units(n)
    {
        thread = std::thread([this] {
            bool go = true;
            for (int i = 0; i < units && (go = gate.proceed()); ++i) done.fetch_add(1);
            result = go;
            finished = true;
        });
    }
    ~Pass()
    {
        if (thread.joinable()) thread.join();
    }
};

TEST(PassGate, AFreePassRunsThrough)
{
    PassGate gate;
    Pass pass(gate, 50);
    pass.thread.join();
    EXPECT_EQ(pass.done.load(), 50);
    EXPECT_TRUE(pass.result.load());
    EXPECT_FALSE(gate.waiting());
}

TEST(PassGate, HeldPassWaitsAndResumesOrStops)
{
    struct Case {
        const char *name;
        bool stopInsteadOfRelease;
        int wantDone;
        bool wantResult;
    };
    const Case cases[] = {{"released", false, 20, true}, {"stopped while waiting", true, 0, false}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        PassGate gate;
        std::vector<bool> told;
        std::mutex toldMutex;
        gate.setOnWait([&](bool w) {
            std::lock_guard lock(toldMutex);
            told.push_back(w);
        });
        gate.setHeld(true);
        Pass pass(gate, 20);
        KAVRI_TRY_VERIFY(gate.waiting(), 20000);
        // Waiting in the gate: not one unit done, and it stays so while held.
        EXPECT_EQ(pass.done.load(), 0);
        EXPECT_FALSE(pass.finished.load());
        gate.setHeld(true); // held again: still waiting
        EXPECT_TRUE(gate.waiting());
        if (c.stopInsteadOfRelease)
            gate.stop();
        else
            gate.setHeld(false);
        pass.thread.join();
        EXPECT_EQ(pass.done.load(), c.wantDone);
        EXPECT_EQ(pass.result.load(), c.wantResult);
        EXPECT_FALSE(gate.waiting());
        EXPECT_EQ(told, (std::vector<bool>{true, false}));
    }
}

TEST(PassGate, HeldMidwayStopsAtTheNextUnit)
{
    PassGate gate;
    std::atomic<int> seen{0};
    // The pass itself holds the gate after its fifth unit, as playback starting then would.
    std::thread pass([&] {
        for (int i = 0; i < 10 && gate.proceed(); ++i)
            if (++seen == 5) gate.setHeld(true);
    });
    KAVRI_TRY_VERIFY(gate.waiting(), 20000);
    EXPECT_EQ(seen.load(), 5);
    gate.setHeld(false);
    pass.join();
    EXPECT_EQ(seen.load(), 10);
}

TEST(PassGate, RearmedAfterAStop)
{
    PassGate gate;
    gate.stop();
    EXPECT_FALSE(gate.proceed());
    EXPECT_TRUE(gate.stopped());
    gate.setHeld(true);
    gate.rearm();
    EXPECT_FALSE(gate.stopped());
    EXPECT_TRUE(gate.held()); // a new pass while playing still waits
    gate.setHeld(false);
    EXPECT_TRUE(gate.proceed());
}

} // namespace
