#include <kx/core/core.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

TEST(Exception, MessageIsWhatAndNullIsEmpty)
{
    kxExceptionWithString e("disk on fire");
    EXPECT_EQ(std::string(e.what()), "disk on fire");
    EXPECT_EQ(e.message(), "disk on fire");
    EXPECT_TRUE(e.hasMessage());
    kxExceptionWithString none;
    EXPECT_EQ(std::string(none.what()), "");
    EXPECT_FALSE(none.hasMessage());
    EXPECT_EQ(none.errorNumber(), 0);
}

TEST(Exception, CaughtThroughEveryBase)
{
    try {
        throw kxExceptionWithString("x");
    } catch (const std::exception& e) {
        EXPECT_EQ(std::string(e.what()), "x");
    }
    try {
        throw kxExceptionWithString("y");
    } catch (const kxPersistent&) {
        SUCCEED();
    }
}

TEST(Exception, ArchivesItsText)
{
    kxExceptionWithString e("broken");
    kxMemoryArchive out;
    e.dispatchSerialize(out);
    kxMemoryArchive in(out.bytes());
    kxExceptionWithString loaded;
    loaded.dispatchSerialize(in);
    EXPECT_EQ(std::string(loaded.what()), "broken");
    EXPECT_TRUE(loaded.hasMessage());
    EXPECT_EQ(in.remaining(), 0u);
}

// what() makes its text once and never changes it: one exception read from
// several threads is not a data race (ThreadSanitizer checks this one).
TEST(Exception, WhatIsSafeToReadFromSeveralThreads)
{
    const kxExceptionWithString withText("shared message");
    struct Plain : kxException {
    } plain;
    std::vector<std::thread> readers;
    std::atomic<int> mismatches{0};
    for (int t = 0; t < 4; ++t)
        readers.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                if (std::string(withText.what()) != "shared message")
                    ++mismatches;
                if (std::string(plain.what()) != "")
                    ++mismatches;
            }
        });
    for (std::thread& r : readers)
        r.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(withText.what(), withText.what());
    EXPECT_EQ(plain.what(), plain.what());
}
