#include <kx/core/core.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <new>
#include <sstream>
#include <streambuf>

#include <sys/resource.h>

namespace {

using Bytes = std::vector<unsigned char>;

// A small persistent class for the object tests.
class Point : public kxPersistent {
public:
    long x = 0;
    double weight = 0.0;
    std::shared_ptr<kxPersistent> next;

    void dispatchSerialize(kxArchive& archive) override
    {
        kfStreamVersioned(archive, this, sizeof(Point), [&](unsigned char version) {
            if (version != 0)
                throw kxArchive::UnknownVersion("Point", 1);
            kxPersistent::dispatchSerialize(archive);
            archive || x || weight;
            if (archive.isStoring())
                archive.storeObject(next.get());
            else
                next = archive.loadObject();
        });
    }

    static kxPersistent* make() { return new (std::nothrow) Point(); }
    static kx_Instantiator sExemplar;
};
kx_Instantiator Point::sExemplar(typeid(Point), &Point::make);

template <typename T>
Bytes storeOne(T value)
{
    kxMemoryArchive archive;
    archive || value;
    return archive.bytes();
}

}  // namespace

TEST(Archive, WireFormatIsLittleEndianFixedWidth)
{
    EXPECT_EQ(storeOne(true), (Bytes{1}));
    EXPECT_EQ(storeOne(static_cast<unsigned char>(0xAB)), (Bytes{0xAB}));
    EXPECT_EQ(storeOne(-2L), (Bytes{0xFE, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(storeOne(0x01020304UL), (Bytes{4, 3, 2, 1}));
    EXPECT_EQ(storeOne(1.0f), (Bytes{0, 0, 0x80, 0x3F}));
    EXPECT_EQ(storeOne(-2.0), (Bytes{0, 0, 0, 0, 0, 0, 0, 0xC0}));
    EXPECT_EQ(storeOne(std::string("ab")), (Bytes{2, 0, 0, 0, 'a', 'b'}));
}

TEST(Archive, RoundTripsEveryType)
{
    kxMemoryArchive out;
    bool b = true;
    unsigned char c = 200;
    long l = std::numeric_limits<std::int32_t>::min();
    unsigned long u = 4000000000UL;
    float f = -0.0f;
    double d = 1.0 / 3.0;
    std::string s = "text";
    kxPair<long> p(-5, 7);
    kxXform<2> x(kxMatrix<2>(1, 2, 3, 4), kxVector<2>(5, 6));
    out || b || c || l || u || f || d || s;
    out || p || x;
    kxMemoryArchive in(out.bytes());
    bool b2 = false;
    unsigned char c2 = 0;
    long l2 = 0;
    unsigned long u2 = 0;
    float f2 = 1;
    double d2 = 0;
    std::string s2;
    kxPair<long> p2;
    kxXform<2> x2;
    in || b2 || c2 || l2 || u2 || f2 || d2 || s2;
    in || p2 || x2;
    EXPECT_TRUE(in.isLoading());
    EXPECT_EQ(b2, b);
    EXPECT_EQ(c2, c);
    EXPECT_EQ(l2, l);
    EXPECT_EQ(u2, u);
    EXPECT_TRUE(std::signbit(f2));
    EXPECT_EQ(d2, d);
    EXPECT_EQ(s2, s);
    EXPECT_EQ(p2, p);
    EXPECT_EQ(x2, x);
    EXPECT_EQ(in.remaining(), 0u);
}

TEST(Archive, RefusesValuesThatDoNotFitIn32Bits)
{
    kxMemoryArchive out;
    long big = 1L << 31;
    unsigned long huge = 1UL << 32;
    EXPECT_THROW(out || big, kxArchive::Error);
    EXPECT_THROW(out || huge, kxArchive::Error);
}

TEST(Archive, EveryTruncationEndsInAClearError)
{
    kxMemoryArchive out;
    long l = 12;
    double d = 2.5;
    std::string s = "hello";
    kxPair<long> p(1, 2);
    out || l || d || s || p;
    const Bytes full = out.bytes();
    for (std::size_t cut = 0; cut < full.size(); ++cut) {
        kxMemoryArchive in(Bytes(full.begin(), full.begin() + cut));
        long l2;
        double d2;
        std::string s2;
        kxPair<long> p2;
        try {
            in || l2 || d2 || s2 || p2;
            FAIL() << "no error at cut " << cut;
        } catch (const kxArchive::Error& e) {
            EXPECT_NE(std::string(e.what()).find("kxArchive:"), std::string::npos);
        }
    }
}

TEST(Archive, CountLargerThanTheDataIsRefusedBeforeAllocating)
{
    kxMemoryArchive in(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 'a'});
    std::string s;
    try {
        in || s;
        FAIL();
    } catch (const kxArchive::Error& e) {
        EXPECT_EQ(std::string(e.what()),
                  "kxArchive: count of 4294967295 items exceeds the data left (1 bytes)");
    }
    kxMemoryArchive ok(Bytes{1, 2});
    EXPECT_NO_THROW(ok.requireItems(2, 1));
    EXPECT_THROW(ok.requireItems(1, 4), kxArchive::Error);
}

TEST(Archive, RefusesAnInvalidBool)
{
    kxMemoryArchive in(Bytes{2});
    bool b;
    EXPECT_THROW(in || b, kxArchive::Error);
}

TEST(Archive, PairVersionOtherThanZeroIsUnknown)
{
    kxMemoryArchive in(Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0});
    kxPair<long> p;
    try {
        in || p;
        FAIL();
    } catch (const kxArchive::UnknownVersion& e) {
        EXPECT_EQ(e.source(), "");
        EXPECT_EQ(e.line(), 0);
        EXPECT_EQ(std::string(e.what()), "kxArchive: unknown version");
    }
    kxArchive::UnknownVersion named("filt/fft", 572);
    EXPECT_EQ(std::string(named.what()), "kxArchive: unknown version in filt/fft, line 572");
}

TEST(Archive, StreamArchiveWritesTheSameBytesAndKnowsWhatIsLeft)
{
    std::stringstream stream;
    {
        kxStreamArchive out(stream, kxStreamArchive::eStore);
        long l = 7;
        std::string s = "xyz";
        out || l || s;
    }
    kxMemoryArchive mem;
    long l = 7;
    std::string s = "xyz";
    mem || l || s;
    const std::string bytes = stream.str();
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), mem.bytes());

    kxStreamArchive in(stream, kxStreamArchive::eLoad);
    EXPECT_EQ(in.remaining(), bytes.size());
    long l2 = 0;
    std::string s2;
    in || l2 || s2;
    EXPECT_EQ(l2, 7);
    EXPECT_EQ(s2, "xyz");
    EXPECT_THROW(in || l2, kxArchive::Error);
}

TEST(Archive, ObjectsComeBackByTheirDynamicTypeAndSharingIsKept)
{
    auto first = std::make_shared<Point>();
    first->x = 3;
    first->weight = 0.5;
    auto second = std::make_shared<Point>();
    second->x = -9;
    second->next = first;   // first reached twice
    first->next = nullptr;

    kxMemoryArchive out;
    out.storeObject(second.get());
    out.storeObject(first.get());
    out.storeObject(nullptr);

    kxMemoryArchive in(out.bytes());
    auto a = in.loadObjectAs<Point>();
    auto b = in.loadObjectAs<Point>();
    auto c = in.loadObject();
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->x, -9);
    EXPECT_EQ(b->x, 3);
    EXPECT_EQ(b->weight, 0.5);
    EXPECT_EQ(a->next, b);   // the same object, not a copy
    EXPECT_EQ(c, nullptr);
}

TEST(Archive, VisitedPartsAreStreamedOnce)
{
    Point p;
    p.x = 4;
    kxMemoryArchive out;
    p.dispatchSerialize(out);
    const std::size_t once = out.bytes().size();
    p.dispatchSerialize(out);
    EXPECT_EQ(out.bytes().size(), once);
    EXPECT_TRUE(kxPersistent::haveVisited(out, &p, sizeof(Point)));
    EXPECT_FALSE(kxPersistent::haveVisited(out, &p, sizeof(Point) + 1));
}

TEST(Archive, MalformedObjectRecordsAreRefused)
{
    {
        kxMemoryArchive in(Bytes{9});
        EXPECT_THROW(in.loadObject(), kxArchive::Error);
    }
    {
        kxMemoryArchive in(Bytes{1, 3, 0, 0, 0, 'Z', 'Z', 'Z'});
        try {
            in.loadObject();
            FAIL();
        } catch (const kxArchive::Error& e) {
            EXPECT_EQ(std::string(e.what()), "kxArchive: no class registered as 'ZZZ'");
        }
    }
    {
        kxMemoryArchive in(Bytes{2, 0, 0, 0, 0});
        EXPECT_THROW(in.loadObject(), kxArchive::Error);
    }
    {
        kxMemoryArchive in(Bytes{1, 0xFF, 0xFF, 0xFF, 0x7F});
        EXPECT_THROW(in.loadObject(), kxArchive::Error);
    }
    {
        Point p;
        kxMemoryArchive out;
        out.storeObject(&p);
        Bytes bytes = out.bytes();
        for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
            kxMemoryArchive in(Bytes(bytes.begin(), bytes.begin() + cut));
            EXPECT_THROW(in.loadObject(), kxArchive::Error) << cut;
        }
    }
}

TEST(Archive, TransformCacheStreamsItsLinearForm)
{
    kx2XformCache cache;
    cache.xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(2, 0, 0, 3), kxVector<2>(1, -1))));
    kxMemoryArchive out;
    out || cache;
    EXPECT_EQ(out.bytes().size(), 1u + 6 * 8);
    kxMemoryArchive in(out.bytes());
    kx2XformCache loaded;
    in || loaded;
    EXPECT_EQ(loaded, cache);
}

namespace {

// A stream over bytes that cannot seek, like a pipe: the archive cannot learn
// how much data there is.
class PipeBuffer : public std::streambuf {
public:
    explicit PipeBuffer(std::vector<char> bytes) : bytes_(std::move(bytes))
    {
        setg(bytes_.data(), bytes_.data(), bytes_.data() + bytes_.size());
    }

private:
    std::vector<char> bytes_;
};

long peakResidentKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

}  // namespace

// A length read from the data used to be allocated before any byte was
// read: four bytes asked for 4 GiB.
TEST(Archive, LengthsFromAStreamThatCannotSeekAllocateOnlyWhatArrives)
{
    const long before = peakResidentKiB();
    for (const std::vector<char>& bytes :
         {std::vector<char>{'\xff', '\xff', '\xff', '\xff'}, std::vector<char>{'\xff', '\xff', '\xff', '\x7f', 'a', 'b'}}) {
        PipeBuffer pipe(bytes);
        std::istream in(&pipe);
        kxStreamArchive archive(in);
        ASSERT_EQ(archive.remaining(), std::numeric_limits<std::size_t>::max());
        std::string text = "kept";
        EXPECT_THROW(archive || text, kxArchive::Error);
        EXPECT_EQ(text, "kept");
    }
    EXPECT_LT(peakResidentKiB() - before, 64 * 1024);
    // Texts of any length still arrive whole through such a stream.
    std::string longText(200000, 'x');
    longText[199999] = 'y';
    kxMemoryArchive out;
    out || longText;
    PipeBuffer pipe(std::vector<char>(out.bytes().begin(), out.bytes().end()));
    std::istream in(&pipe);
    kxStreamArchive archive(in);
    std::string read;
    archive || read;
    EXPECT_EQ(read, longText);
}
