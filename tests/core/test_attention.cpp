#include <kx/core/core.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

TEST(Attention, NothingPendingDoesNothing)
{
    EXPECT_FALSE(kxAttention::requested());
    EXPECT_NO_THROW(kxAttention::check());
}

TEST(Attention, ProbeCountsPollsAndThrowsAtTheNth)
{
    {
        kxAttention::Probe probe;
        for (int i = 0; i < 5; ++i)
            kxAttention::check();
        EXPECT_EQ(probe.count(), 5u);
    }
    kxAttention::Probe probe(3);
    kxAttention::check();
    kxAttention::check();
    EXPECT_THROW(kxAttention::check(), kxAttention::Stopped);
    EXPECT_NO_THROW(kxAttention::check());
    EXPECT_EQ(probe.count(), 4u);
}

TEST(Attention, ProbesNestAndCountOnlyTheirThread)
{
    kxAttention::Probe outer;
    kxAttention::check();
    {
        kxAttention::Probe inner;
        kxAttention::check();
        std::thread other([] { kxAttention::check(); });
        other.join();
        EXPECT_EQ(inner.count(), 1u);
    }
    kxAttention::check();
    EXPECT_EQ(outer.count(), 2u);
}

TEST(Attention, AnotherThreadStopsARunningLoop)
{
    std::atomic<bool> started{false};
    std::atomic<bool> stopped{false};
    std::thread worker([&] {
        try {
            for (;;) {
                started = true;
                kxAttention::check();
            }
        } catch (const kxAttention::Stopped& e) {
            stopped = std::string(e.what()) == "Operation stopped by an attention request";
        }
    });
    while (!started)
        std::this_thread::yield();
    kxAttention::request();
    worker.join();
    EXPECT_TRUE(stopped);
    EXPECT_TRUE(kxAttention::requested());
    EXPECT_THROW(kxAttention::check(), kxAttention::Stopped);   // stays in force
    kxAttention::clear();
    EXPECT_NO_THROW(kxAttention::check());
}
