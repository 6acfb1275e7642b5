#include <kx/fft.h>

#include <gtest/gtest.h>

#include <memory>

using Defs = kxFrequencyDefs;

TEST(Errors, NumbersAreConsecutiveInTableOrder)
{
    EXPECT_EQ(Defs::InvalidArgument().errorNumber(), 0x10006300);
    EXPECT_EQ(Defs::Uninitialized().errorNumber(), 0x10006301);
    EXPECT_EQ(Defs::InvalidSize().errorNumber(), 0x10006302);
    EXPECT_EQ(Defs::UnboundWindow().errorNumber(), 0x10006303);
    EXPECT_EQ(Defs::InvalidBuffer().errorNumber(), 0x10006304);
    EXPECT_EQ(Defs::BadCoord().errorNumber(), 0x10006305);
}

TEST(Errors, CaughtAsBaseKeepsMessageAndNumber)
{
    try {
        throw Defs::InvalidSize("Size must be a power of 2.");
    } catch (const Defs::Errors& e) {
        EXPECT_EQ(std::string(e.what()), "Size must be a power of 2.");
        EXPECT_EQ(e.errorNumber(), 0x10006302);
    }
    try {
        throw Defs::BadCoord("Coordinates are out of bounds");
    } catch (const kxExceptionWithString& e) {
        EXPECT_EQ(e.text(), "Coordinates are out of bounds");
    }
    try {
        throw Defs::Uninitialized();
    } catch (const kxException& e) {
        EXPECT_EQ(e.errorNumber(), 0x10006301);
    }
    try {
        throw Defs::UnboundWindow();
    } catch (const kxPersistent&) {
        SUCCEED();
    }
}

TEST(Errors, SuicideAndRethrowFreesAndThrowsTheDynamicType)
{
    Defs::Errors* held = new Defs::BadCoord("Coordinates are out of bounds");
    try {
        held->suicideAndRethrow();
        FAIL();
    } catch (const Defs::BadCoord& e) {   // LeakSanitizer proves the delete
        EXPECT_EQ(std::string(e.what()), "Coordinates are out of bounds");
    }
}

TEST(Errors, ArchiveRoundTripByDynamicType)
{
    Defs::InvalidBuffer original("Cannot access frequency data once inverse has been computed.");
    kxMemoryArchive out;
    out.storeObject(&original);
    kxMemoryArchive in(out.bytes());
    auto loaded = in.loadObjectAs<Defs::InvalidBuffer>();
    ASSERT_TRUE(loaded);
    EXPECT_EQ(std::string(loaded->what()), original.what());
    EXPECT_EQ(loaded->errorNumber(), 0x10006304);
}

namespace {
// The version bytes of an archived exception: the subclass's, Errors', then
// what kxException writes (its own byte, kxPersistent's byte, the text).
std::vector<unsigned char> storedBytes(kxPersistent& e)
{
    kxMemoryArchive out;
    e.dispatchSerialize(out);
    return out.bytes();
}
}  // namespace

TEST(Errors, LayoutIsSubclassThenErrorsThenException)
{
    Defs::InvalidSize e("ab");
    const std::vector<unsigned char> expected{0, 0, 0, 0, 1, 2, 0, 0, 0, 'a', 'b'};
    EXPECT_EQ(storedBytes(e), expected);
}

TEST(Errors, StoringTwiceInOnePassWritesOnce)
{
    Defs::InvalidArgument e("x");
    kxMemoryArchive out;
    kxPersistent& p = e;
    p.dispatchSerialize(out);
    const std::size_t once = out.bytes().size();
    p.dispatchSerialize(out);
    EXPECT_EQ(out.bytes().size(), once);
}

TEST(Errors, UnknownVersionNamesTheClass)
{
    const char* names[] = {"kxFrequencyDefs::InvalidArgument", "kxFrequencyDefs::Uninitialized",
                           "kxFrequencyDefs::InvalidSize",     "kxFrequencyDefs::UnboundWindow",
                           "kxFrequencyDefs::InvalidBuffer",   "kxFrequencyDefs::BadCoord"};
    std::unique_ptr<kxPersistent> objects[] = {
        std::make_unique<Defs::InvalidArgument>(), std::make_unique<Defs::Uninitialized>(),
        std::make_unique<Defs::InvalidSize>(),     std::make_unique<Defs::UnboundWindow>(),
        std::make_unique<Defs::InvalidBuffer>(),   std::make_unique<Defs::BadCoord>()};
    for (int i = 0; i < 6; ++i) {
        kxMemoryArchive in(std::vector<unsigned char>{1, 0, 0, 0, 1, 0, 0, 0, 0});
        try {
            objects[i]->dispatchSerialize(in);
            FAIL() << names[i];
        } catch (const kxArchive::UnknownVersion& e) {
            EXPECT_EQ(e.source(), names[i]);
            EXPECT_EQ(e.line(), 0);
        }
        // Version 0 for the subclass, 1 for Errors: Errors names itself.
        kxMemoryArchive inner(std::vector<unsigned char>{0, 1, 0, 0, 1, 0, 0, 0, 0});
        try {
            objects[i]->dispatchSerialize(inner);
            FAIL();
        } catch (const kxArchive::UnknownVersion& e) {
            EXPECT_EQ(e.source(), "kxFrequencyDefs::Errors");
        }
    }
}

TEST(Errors, FactoryKnowsEveryClass)
{
    EXPECT_TRUE(kx_Instantiator::isRegistered(kx_Instantiator::className(typeid(Defs::BadCoord))));
    EXPECT_TRUE(kx_Instantiator::isRegistered(kx_Instantiator::className(typeid(Defs::InvalidArgument))));
    EXPECT_FALSE(kx_Instantiator::isRegistered(kx_Instantiator::className(typeid(Defs::Errors))));
}
