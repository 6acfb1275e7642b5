#include <kx/core/core.h>

#include <gtest/gtest.h>

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
