// The gain table the Gabor and radial filters keep their gains in, and the
// read-only view a filter gives of it.
#include <kx/freqfilt.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

bool aligned16(const float* p) { return reinterpret_cast<std::uintptr_t>(p) % 16 == 0; }

// A table of `count` gains 1, 2, 3, ...
kx_GainTable counting(std::size_t count)
{
    kx_GainTable table(count);
    for (std::size_t i = 0; i < count; ++i)
        table.data()[i] = static_cast<float>(i + 1);
    return table;
}

}  // namespace

// A const filter hands out its gains read-only.
static_assert(std::is_same<decltype(std::declval<const kxFrequencyFilterGabor&>().data()), const float*>::value,
              "a const filter's gains are const");
static_assert(std::is_same<decltype(std::declval<const kx_GainTable&>().data()), const float*>::value,
              "a const table's gains are const");

TEST(GainTable, EmptyUntilBuilt)
{
    const kx_GainTable empty;
    EXPECT_EQ(empty.data(), nullptr);
    EXPECT_TRUE(empty.stored().empty());

    const kx_GainTable zeros(7);
    ASSERT_NE(zeros.data(), nullptr);
    EXPECT_TRUE(aligned16(zeros.data()));
    EXPECT_EQ(zeros.count(), 7u);
    EXPECT_EQ(zeros.stored(), std::vector<float>(7, 0.0f));
}

TEST(GainTable, CopiesHaveTheirOwnAlignedStore)
{
    const kx_GainTable a = counting(5);
    kx_GainTable b(a);
    ASSERT_NE(b.data(), a.data());
    EXPECT_TRUE(aligned16(b.data()));
    EXPECT_EQ(b.stored(), (std::vector<float>{1, 2, 3, 4, 5}));
    b.data()[0] = 9.0f;
    EXPECT_EQ(a.data()[0], 1.0f);

    kx_GainTable c = counting(2);
    c = a;
    EXPECT_EQ(c.stored(), a.stored());
    c = kx_GainTable();   // from an empty table only the gains go
    EXPECT_EQ(c.data(), nullptr);
}

TEST(GainTable, CommitKeepsTheAddressForTheSameCount)
{
    kx_GainTable table = counting(4);
    const float* before = table.data();
    kx_GainTable same = counting(4);
    same.data()[3] = 40.0f;
    table.commit(same);
    EXPECT_EQ(table.data(), before);
    EXPECT_EQ(table.stored(), (std::vector<float>{1, 2, 3, 40}));

    kx_GainTable longer = counting(6);
    const float* built = longer.data();
    table.commit(longer);
    EXPECT_EQ(table.data(), built);   // the built store, taken over
    EXPECT_EQ(table.count(), 6u);
    EXPECT_EQ(table.stored(), (std::vector<float>{1, 2, 3, 4, 5, 6}));

    kx_GainTable dropped = counting(6);
    dropped.drop();
    EXPECT_EQ(dropped.data(), nullptr);
    kx_GainTable fresh = counting(6);
    const float* freshGains = fresh.data();
    dropped.commit(fresh);   // nothing to overwrite: takes the new store
    EXPECT_EQ(dropped.data(), freshGains);
}

TEST(GainTable, SameGainsTreatsNaNAsEqual)
{
    kx_GainTable a = counting(3), b = counting(3);
    EXPECT_TRUE(a.sameGains(b));
    b.data()[1] = std::nanf("");
    EXPECT_TRUE(a.sameGains(b));
    b.data()[2] = 0.5f;
    EXPECT_FALSE(a.sameGains(b));
    EXPECT_FALSE(a.sameGains(counting(4)));
}

TEST(GainTable, LoadTakesTheExpectedGainsAndRefusesTooFew)
{
    kx_GainTable table;
    table.load(true, 3, std::vector<float>{1, 2, 3, 4});
    EXPECT_TRUE(aligned16(table.data()));
    EXPECT_EQ(table.count(), 3u);
    EXPECT_EQ(table.stored(), (std::vector<float>{1, 2, 3}));

    EXPECT_THROW(table.load(true, 5, std::vector<float>{1, 2, 3}), kxArchive::Error);
    EXPECT_THROW(table.load(true, 0, std::vector<float>{}), kxArchive::Error);
    EXPECT_THROW(table.load(false, 0, std::vector<float>{1}), kxArchive::Error);
    EXPECT_EQ(table.stored(), (std::vector<float>{1, 2, 3}));   // refusals change nothing

    table.load(false, 0, std::vector<float>{});
    EXPECT_EQ(table.data(), nullptr);
}
