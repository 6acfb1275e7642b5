// The library's results against the golden files: the same image, filters
// and objects must give the same bytes on every build, optimisation level,
// instruction set and code path. A difference names the first element that
// differs.
#include "golden_cases.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace {

kxgolden::Bytes readGolden(const std::string& name)
{
    std::ifstream file(std::string(KXFREQ_GOLDEN_DIR) + "/" + name + ".bin", std::ios::binary);
    return kxgolden::Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string hex(const kxgolden::Bytes& bytes, std::size_t at, std::size_t size)
{
    std::ostringstream out;
    for (std::size_t i = at; i < at + size && i < bytes.size(); ++i)
        out << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(bytes[i]);
    return out.str();
}

class Golden : public testing::TestWithParam<kxgolden::Case> {};

}  // namespace

TEST_P(Golden, MatchesTheStoredBytes)
{
    const kxgolden::Case& c = GetParam();
    const kxgolden::Bytes expected = readGolden(c.name);
    ASSERT_FALSE(expected.empty()) << "missing golden file " << c.name << ".bin";
    const kxgolden::Bytes actual = c.make();
    ASSERT_EQ(actual.size(), expected.size()) << c.name;
    for (std::size_t i = 0; i < actual.size(); ++i)
        if (actual[i] != expected[i]) {
            const std::size_t element = i / c.itemSize;
            FAIL() << c.name << ": element " << element << " (byte " << i << ") is " << hex(actual, element * c.itemSize, c.itemSize)
                   << ", golden " << hex(expected, element * c.itemSize, c.itemSize);
        }
}

INSTANTIATE_TEST_SUITE_P(Pipelines, Golden, testing::ValuesIn(kxgolden::goldenCases()),
                         [](const testing::TestParamInfo<kxgolden::Case>& info) {
                             std::string name = info.param.name;
                             for (char& ch : name)
                                 if (ch == '-')
                                     ch = '_';
                             return name;
                         });
