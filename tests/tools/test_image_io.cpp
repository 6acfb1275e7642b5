#include "image_detail.h"
#include "image_io.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <sys/resource.h>

using namespace kxio;

namespace {

std::string temp(const std::string& name) { return ::testing::TempDir() + "kxio_" + name; }

std::vector<char> bytesOf(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::vector<char>& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The message of the ImageError that `action` throws; a test failure, and an
// empty message, when it throws none.
template <typename F>
std::string imageErrorOf(F action)
{
    try {
        action();
    } catch (const ImageError& e) {
        return e.what();
    }
    ADD_FAILURE() << "no ImageError was thrown";
    return "";
}

GreyImage sample8()
{
    kxPelBuffer<unsigned char> p(7, 5);
    for (long y = 0; y < 5; ++y)
        for (long x = 0; x < 7; ++x)
            p(x, y) = static_cast<unsigned char>(x * 30 + y * 7);
    return makeImage8(p);
}

GreyImage sample16()
{
    kxPelBuffer<unsigned short> p(6, 4);
    for (long y = 0; y < 4; ++y)
        for (long x = 0; x < 6; ++x)
            p(x, y) = static_cast<unsigned short>(x * 10000 + y * 123 + 1);
    return makeImage16(p);
}

void expectSame(const GreyImage& a, const GreyImage& b)
{
    ASSERT_EQ(a.bits, b.bits);
    ASSERT_EQ(a.width(), b.width());
    ASSERT_EQ(a.height(), b.height());
    for (long y = 0; y < a.height(); ++y)
        for (long x = 0; x < a.width(); ++x)
            ASSERT_EQ(a.bits == 8 ? a.pixels8(x, y) : a.pixels16(x, y), b.bits == 8 ? b.pixels8(x, y) : b.pixels16(x, y));
}

}  // namespace

TEST(ImageIO, RoundTripsEveryFormatAndDepth)
{
    for (const GreyImage& image : {sample8(), sample16()}) {
        for (Format format : {Format::Pgm, Format::PgmAscii, Format::Png, Format::Tiff}) {
            if ((format == Format::Png && !pngSupported()) || (format == Format::Tiff && !tiffSupported()))
                continue;
            const std::string path = temp(std::string("rt") + extensionOf(format));
            writeImage(path, image, format);
            expectSame(readImage(path), image);
            std::remove(path.c_str());
        }
    }
}

TEST(ImageIO, ReadsCommentsAndSmallMaxvals)
{
    const std::string path = temp("comment.pgm");
    const std::string text = "P2\n# a comment\n3 1 # width height\n15\n0 7 15\n";
    writeBytes(path, std::vector<char>(text.begin(), text.end()));
    const GreyImage image = readImage(path);
    EXPECT_EQ(image.bits, 8);
    EXPECT_EQ(image.pixels8(2, 0), 15);
    const std::string big = "P2\n1 1\n15\n16\n";
    writeBytes(path, std::vector<char>(big.begin(), big.end()));
    EXPECT_THROW(readImage(path), ImageError);   // above the maximum value
    std::remove(path.c_str());
}

TEST(ImageIO, TruncatedAndCorruptFilesAreRefusedCleanly)
{
    std::vector<std::string> formats{"pgm"};
    if (pngSupported())
        formats.push_back("png");
    if (tiffSupported())
        formats.push_back("tif");
    for (const std::string& ext : formats) {
        const std::string path = temp("full." + ext);
        writeImage(path, sample16(), formatFor(path));
        const std::vector<char> full = bytesOf(path);
        const std::string cutPath = temp("cut." + ext);
        for (std::size_t cut = 0; cut < full.size(); cut += std::max<std::size_t>(1, full.size() / 23)) {
            writeBytes(cutPath, std::vector<char>(full.begin(), full.begin() + cut));
            EXPECT_NE(imageErrorOf([&] { readImage(cutPath); }).find(cutPath), std::string::npos)
                << ext << " cut at " << cut;
        }
        // A flipped byte in the data of a PNG breaks its checksum.
        if (ext == "png") {
            std::vector<char> flipped = full;
            flipped[full.size() / 2] ^= 0x55;
            writeBytes(cutPath, flipped);
            EXPECT_THROW(readImage(cutPath), ImageError);
        }
        std::remove(path.c_str());
        std::remove(cutPath.c_str());
    }
}

TEST(ImageIO, HugeAnnouncedSizesAreRefusedBeforeAllocating)
{
    const std::string path = temp("huge.pgm");
    const std::string text = "P5\n100000 100000\n255\n";
    writeBytes(path, std::vector<char>(text.begin(), text.end()));
    EXPECT_THROW(readImage(path), ImageError);
    const std::string zero = "P5\n0 5\n255\n";
    writeBytes(path, std::vector<char>(zero.begin(), zero.end()));
    EXPECT_THROW(readImage(path), ImageError);
    std::remove(path.c_str());
}

// The same bytes read from memory give the same image; a region is the same
// pixels as the whole image's.
TEST(ImageIO, ReadsFromMemoryAndRegions)
{
    std::vector<Format> formats{Format::Pgm, Format::PgmAscii};
    if (pngSupported())
        formats.push_back(Format::Png);
    if (tiffSupported())
        formats.push_back(Format::Tiff);
    for (const GreyImage& image : {sample8(), sample16()})
        for (Format format : formats) {
            const std::vector<unsigned char> bytes = encodeImage("memory", image, format);
            expectSame(readImageFromMemory(bytes.data(), bytes.size()), image);
            Region region;
            region.x = 2, region.y = 1, region.width = 3, region.height = 2;
            const GreyImage part = readImageFromMemory(bytes.data(), bytes.size(), "memory", region);
            ASSERT_EQ(part.width(), 3);
            ASSERT_EQ(part.height(), 2);
            for (long y = 0; y < 2; ++y)
                for (long x = 0; x < 3; ++x)
                    EXPECT_EQ(image.bits == 8 ? part.pixels8(x, y) : part.pixels16(x, y),
                              image.bits == 8 ? image.pixels8(x + 2, y + 1) : image.pixels16(x + 2, y + 1));
            region.x = 5;   // 5 + 3 > the width
            EXPECT_THROW(readImageFromMemory(bytes.data(), bytes.size(), "memory", region), ImageError);
            // Every prefix is refused or read, never a crash.
            for (std::size_t cut = 0; cut < bytes.size(); ++cut)
                try {
                    readImageFromMemory(bytes.data(), cut);
                } catch (const ImageError&) {
                }
        }
}

// Sizes beyond the limit are refused from the header: a whole image over the
// caller's limit, and any side over 65535.
TEST(ImageIO, LimitsAreCheckedFromTheHeader)
{
    const std::string text = "P5\n3000 2500\n255\n";
    std::vector<unsigned char> bytes(text.begin(), text.end());
    bytes.resize(bytes.size() + 3000 * 2500, 7);
    const std::string message = imageErrorOf([&] { readImageFromMemory(bytes.data(), bytes.size(), "big.pgm"); });
    EXPECT_NE(message.find("image is 3000 x 2500; at most 2048"), std::string::npos) << message;
    Region region;
    region.x = 2990, region.y = 2400, region.width = 10, region.height = 100;
    const GreyImage part = readImageFromMemory(bytes.data(), bytes.size(), "big.pgm", region);
    EXPECT_EQ(part.width(), 10);
    EXPECT_EQ(part.pixels8(9, 99), 7);
    ReadLimits generous;
    generous.maxSide = kMaxSide;
    EXPECT_EQ(readImageFromMemory(bytes.data(), bytes.size(), "big.pgm", Region{}, generous).width(), 3000);
    const std::string huge = "P5\n65536 1\n255\n";
    EXPECT_THROW(readImageFromMemory(reinterpret_cast<const unsigned char*>(huge.data()), huge.size()), ImageError);
}

TEST(ImageIO, MissingFilesAndUnknownFormats)
{
    EXPECT_NE(imageErrorOf([] { readImage(temp("does-not-exist.pgm")); }).find("cannot open"), std::string::npos);
    EXPECT_THROW(formatFor("picture.bmp"), ImageError);
    EXPECT_EQ(formatFor("scan.TIFF"), Format::Tiff);
    EXPECT_EQ(formatFor("A.PNG"), Format::Png);
    EXPECT_EQ(formatFor("a.pnm"), Format::Pgm);
}

TEST(ImageIO, FailedWritesLeaveNoFile)
{
    const std::string path = ::testing::TempDir() + "no-such-directory/out.pgm";
    EXPECT_THROW(writeImage(path, sample8()), ImageError);
    EXPECT_FALSE(std::ifstream(path).good());
    EXPECT_FALSE(std::ifstream(path + ".partial").good());
}

#ifdef KXIO_TEST_PNG
#include <png.h>
#include <zlib.h>

namespace {

void put32(std::vector<unsigned char>& out, unsigned long v)
{
    for (int s = 24; s >= 0; s -= 8)
        out.push_back(static_cast<unsigned char>((v >> s) & 0xff));
}

void chunk(std::vector<unsigned char>& out, const char* type, const std::vector<unsigned char>& data)
{
    std::vector<unsigned char> body(type, type + 4);
    body.insert(body.end(), data.begin(), data.end());
    put32(out, data.size());
    out.insert(out.end(), body.begin(), body.end());
    put32(out, crc32(0, body.data(), static_cast<uInt>(body.size())));
}

}  // namespace

// A 68-byte PNG announcing 65535 x 65535 pixels is refused from its header,
// whole or as a region, without sizing anything by the announced size.
TEST(ImageIO, TinyPngAnnouncingAHugeImageIsRefusedFromItsHeader)
{
    for (unsigned char bits : {8, 16}) {
        std::vector<unsigned char> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
        std::vector<unsigned char> ihdr;
        put32(ihdr, 65535);
        put32(ihdr, 65535);
        ihdr.insert(ihdr.end(), {bits, 0, 0, 0, 0});
        chunk(png, "IHDR", ihdr);
        chunk(png, "IDAT", {0x78, 0x9c, 0x63, 0x60, 0x00, 0x00, 0x00, 0x02, 0x00, 0x01});
        chunk(png, "IEND", {});
        EXPECT_LE(png.size(), 80u);
        const std::string message = imageErrorOf([&] { readImageFromMemory(png.data(), png.size(), "huge.png"); });
        EXPECT_NE(message.find("image is 65535 x 65535"), std::string::npos) << message;
        Region region;
        region.x = 60000, region.y = 60000, region.width = 2048, region.height = 2048;
        EXPECT_THROW(readImageFromMemory(png.data(), png.size(), "huge.png", region), ImageError);
    }
}

// A 163-byte tiled TIFF found by fuzzing (41987 x 1546, read through a small
// region) once made the reader allocate 5 GB for one tile. It is refused, in
// little memory; the reader now also refuses tiles larger than the image
// needs or than 64 MiB.
TEST(ImageIO, CraftedTiledTiffIsRefusedInLittleMemory)
{
    if (!tiffSupported())
        GTEST_SKIP() << "built without libtiff";
    const std::vector<char> file = bytesOf(std::string(KXIO_FUZZ_CORPUS) + "/image_readers/tiff-tile-larger-than-image");
    ASSERT_EQ(file.size(), 164u);
    // The first byte is the fuzz target's own (whole image or region).
    const auto* data = reinterpret_cast<const unsigned char*>(file.data()) + 1;
    Region region;
    region.x = 0, region.y = 3, region.width = 2, region.height = 2;
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    const std::string message =
        imageErrorOf([&] { readImageFromMemory(data, file.size() - 1, "tile.tif", region); });
    getrusage(RUSAGE_SELF, &after);
    EXPECT_NE(message.find("tile.tif: corrupt TIFF"), std::string::npos) << message;
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024);
}

// A colour PNG written with libpng directly is read as grey, with a notice.
TEST(ImageIO, ColourPngIsConvertedToGreyWithANotice)
{
    const std::string path = temp("colour.png");
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, 2, 1, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    unsigned char row[6] = {200, 200, 200, 0, 0, 0};   // a grey and a black pixel
    png_write_row(png, row);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);

    std::string notice;
    const GreyImage image = readImage(path, [&](const std::string& n) { notice = n; });
    EXPECT_EQ(image.bits, 8);
    EXPECT_EQ(image.width(), 2);
    EXPECT_EQ(image.pixels8(0, 0), 200);
    EXPECT_EQ(image.pixels8(1, 0), 0);
    EXPECT_NE(notice.find("colour image converted to grey"), std::string::npos);
    std::remove(path.c_str());
}
#endif

// ---------------------------------------------------------------- channels, streaming, JPEG

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A w x h image of `channels` planes whose samples differ from plane to plane.
Image sampleChannels(int channels, int bits, long w = 9, long h = 6)
{
    Image image;
    for (int c = 0; c < channels; ++c)
        image.planes.push_back(roundedImage(bits, w, h, [&](long x, long y) {
            const double v = (x * 27 + y * 41 + c * 70) % 256;
            return bits == 8 ? v : v * 257 + c;
        }));
    return image;
}

void expectSameImage(const Image& a, const Image& b)
{
    ASSERT_EQ(a.channels(), b.channels());
    for (int c = 0; c < a.channels(); ++c)
        expectSame(a.planes[static_cast<std::size_t>(c)], b.planes[static_cast<std::size_t>(c)]);
}

double sampleAt(const Image& image, int c, long x, long y)
{
    const GreyImage& p = image.planes[static_cast<std::size_t>(c)];
    return p.bits == 8 ? p.pixels8(x, y) : p.pixels16(x, y);
}

// Collects streamed rows into an image.
class Collect : public RowTarget {
public:
    void start(const ImageInfo& info) override
    {
        info_ = info;
        rows_.clear();
    }
    void row(long y, const void* samples) override
    {
        EXPECT_EQ(y, static_cast<long>(rows_.size()));   // in order, once each
        const std::size_t n = static_cast<std::size_t>(info_.width) * info_.channels;
        std::vector<unsigned> values(n);
        for (std::size_t i = 0; i < n; ++i)
            values[i] = info_.bits == 8 ? static_cast<const unsigned char*>(samples)[i]
                                        : static_cast<const unsigned short*>(samples)[i];
        rows_.push_back(values);
    }
    ImageInfo info_;
    std::vector<std::vector<unsigned>> rows_;
};

}  // namespace

// PNG and TIFF keep grey and alpha, RGB and RGBA, 8 and 16 bits, exactly; a
// grey read gives the luminance and drops alpha.
TEST(ImageIO, ChannelsRoundTripExactly)
{
    std::vector<Format> formats;
    if (pngSupported())
        formats.push_back(Format::Png);
    if (tiffSupported())
        formats.push_back(Format::Tiff);
    for (Format format : formats)
        for (int bits : {8, 16})
            for (int channels = 1; channels <= 4; ++channels) {
                const Image image = sampleChannels(channels, bits);
                const std::string path = temp(std::string("channels") + extensionOf(format));
                writeImage(path, image, format);
                expectSameImage(readChannels(path, Region{}, ReadLimits{}), image);
                const std::vector<unsigned char> bytes = encodeImage(path, image, format);
                expectSameImage(readChannelsFromMemory(bytes.data(), bytes.size(), "memory"), image);
                std::string notice;
                const GreyImage grey = readImage(path, [&](const std::string& n) { notice = n; });
                const double expected = channels >= 3 ? detail::greyOf(static_cast<unsigned>(sampleAt(image, 0, 4, 3)),
                                                                       static_cast<unsigned>(sampleAt(image, 1, 4, 3)),
                                                                       static_cast<unsigned>(sampleAt(image, 2, 4, 3)))
                                                      : sampleAt(image, 0, 4, 3);
                EXPECT_EQ(bits == 8 ? grey.pixels8(4, 3) : grey.pixels16(4, 3), expected);
                EXPECT_EQ(notice.empty(), channels == 1) << notice;
                std::remove(path.c_str());
            }
}

TEST(ImageIO, PgmRefusesColour)
{
    const std::string message = imageErrorOf([] { writeImage(temp("colour.pgm"), sampleChannels(3, 8), Format::Pgm); });
    EXPECT_NE(message.find("PGM holds grey images only"), std::string::npos) << message;
    EXPECT_FALSE(std::ifstream(temp("colour.pgm")).good());
    EXPECT_FALSE(std::ifstream(temp("colour.pgm.partial")).good());
}

// Streamed rows are the rows of the whole image, in order, for every format
// and for tiled TIFF (whose tiles arrive a row of tiles at a time).
TEST(ImageIO, StreamedRowsEqualTheWholeImage)
{
    std::vector<std::string> names{"stream.pgm"};
    if (pngSupported())
        names.push_back("stream.png");
    if (tiffSupported())
        names.push_back("stream.tif");
    for (const std::string& name : names)
        for (int channels : {1, 3}) {
            const Image image = sampleChannels(channels, 16, 37, 29);
            if (channels > 1 && name == "stream.pgm")
                continue;
            const std::string path = temp(name);
            writeImage(path, image, formatFor(path));
            Collect rows;
            streamImage(path, rows, Channels::Keep);
            ASSERT_EQ(rows.rows_.size(), 29u) << name;
            ASSERT_EQ(rows.info_.channels, channels);
            for (long y = 0; y < 29; ++y)
                for (long x = 0; x < 37; ++x)
                    for (int c = 0; c < channels; ++c)
                        ASSERT_EQ(rows.rows_[y][x * channels + c], sampleAt(image, c, x, y)) << name;
            Collect grey;
            streamImage(path, grey, Channels::Grey);
            ASSERT_EQ(grey.info_.channels, 1);
            const GreyImage whole = readImage(path);
            for (long y = 0; y < 29; ++y)
                for (long x = 0; x < 37; ++x)
                    ASSERT_EQ(grey.rows_[y][x], whole.pixels16(x, y));
            std::remove(path.c_str());
        }
}

// A writer that is not committed leaves nothing; one that is leaves the file.
TEST(ImageIO, WriterLeavesNothingUntilCommitted)
{
    const std::string path = temp("writer.pgm");
    std::remove(path.c_str());
    const ImageInfo info{4, 3, 8, Format::Pgm, 1};
    const unsigned char row[4] = {1, 2, 3, 4};
    {
        ImageWriter writer(path, Format::Pgm, info);
        writer.row(row);
        EXPECT_TRUE(std::ifstream(path + ".partial").good());
        EXPECT_THROW(writer.commit(), ImageError);   // 1 of 3 rows
    }
    EXPECT_FALSE(std::ifstream(path).good());
    EXPECT_FALSE(std::ifstream(path + ".partial").good());
    {
        ImageWriter writer(path, Format::Pgm, info);
        for (int y = 0; y < 3; ++y)
            writer.row(row);
        writer.commit();
    }
    EXPECT_EQ(readImage(path).pixels8(3, 2), 4);
    std::remove(path.c_str());
}

// SIGINT or SIGTERM in the middle of a write removes the temporary.
TEST(ImageIO, SignalsRemoveTheTemporary)
{
    for (int signal : {SIGINT, SIGTERM}) {
        const std::string path = temp("signalled.pgm");
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const ImageInfo info{4, 3, 8, Format::Pgm, 1};
            ImageWriter writer(path, Format::Pgm, info);
            const unsigned char row[4] = {1, 2, 3, 4};
            writer.row(row);
            if (!std::ifstream(path + ".partial").good())
                _exit(3);
            std::raise(signal);
            _exit(4);   // not reached
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_FALSE(std::ifstream(path + ".partial").good());
        EXPECT_FALSE(std::ifstream(path).good());
    }
}

#ifdef KXIO_TEST_JPEG
namespace {

// A JPEG's bytes with an EXIF segment stating `orientation` after its SOI.
std::vector<unsigned char> withOrientation(const std::vector<unsigned char>& jpeg, int orientation, bool little)
{
    std::vector<unsigned char> tiff = little ? std::vector<unsigned char>{'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0}
                                             : std::vector<unsigned char>{'M', 'M', 0, 42, 0, 0, 0, 8, 0, 1};
    const auto o = static_cast<unsigned char>(orientation);
    const unsigned char entryLittle[12] = {0x12, 0x01, 3, 0, 1, 0, 0, 0, o, 0, 0, 0};
    const unsigned char entryBig[12] = {0x01, 0x12, 0, 3, 0, 0, 0, 1, 0, o, 0, 0};
    tiff.insert(tiff.end(), little ? entryLittle : entryBig, (little ? entryLittle : entryBig) + 12);
    tiff.insert(tiff.end(), 4, 0);   // no next directory
    std::vector<unsigned char> app1{'E', 'x', 'i', 'f', 0, 0};
    app1.insert(app1.end(), tiff.begin(), tiff.end());
    const std::size_t length = app1.size() + 2;
    std::vector<unsigned char> out{0xFF, 0xD8, 0xFF, 0xE1, static_cast<unsigned char>(length >> 8),
                                   static_cast<unsigned char>(length & 0xFF)};
    out.insert(out.end(), app1.begin(), app1.end());
    out.insert(out.end(), jpeg.begin() + 2, jpeg.end());
    return out;
}

}  // namespace

TEST(ImageIO, JpegRoundTripsGreyAndColourClosely)
{
    for (int channels : {1, 3}) {
        Image image;   // smooth, with edges between the channels' levels
        for (int c = 0; c < channels; ++c)
            image.planes.push_back(
                roundedImage(8, 64, 48, [&](long x, long y) { return 30 + 2 * x + y + 40 * c + (x > 30 ? 50 : 0); }));
        const std::vector<unsigned char> bytes = encodeImage("memory.jpg", image, Format::Jpeg);
        const Image back = readChannelsFromMemory(bytes.data(), bytes.size(), "memory.jpg");
        ASSERT_EQ(back.channels(), channels);
        ASSERT_EQ(back.width(), 64);
        double sum = 0;
        for (int c = 0; c < channels; ++c)
            for (long y = 0; y < 48; ++y)
                for (long x = 0; x < 64; ++x)
                    sum += std::abs(sampleAt(back, c, x, y) - sampleAt(image, c, x, y));
        EXPECT_LT(sum / (channels * 64 * 48), 1.5) << channels;   // quality 95
    }
    const std::string message =
        imageErrorOf([] { encodeImage("deep.jpg", sampleChannels(1, 16), Format::Jpeg); });
    EXPECT_NE(message.find("JPEG holds 8-bit images only"), std::string::npos) << message;
    EXPECT_THROW(encodeImage("alpha.jpg", sampleChannels(4, 8), Format::Jpeg), ImageError);
    WriteOptions bad;
    bad.jpegQuality = 0;
    EXPECT_THROW(encodeImage("q.jpg", sampleChannels(1, 8), Format::Jpeg, bad), ImageError);
}

// Each EXIF orientation turns the stored image upright: a smooth ramp in x
// and y, so that JPEG's loss cannot hide which corner went where.
TEST(ImageIO, JpegExifOrientationIsApplied)
{
    const long w = 48, h = 32;
    Image image;
    image.planes.push_back(roundedImage(8, w, h, [&](long x, long y) { return 20 + 3 * x + 2 * y; }));
    const std::vector<unsigned char> plain = encodeImage("o.jpg", image, Format::Jpeg);
    for (int orientation = 1; orientation <= 8; ++orientation)
        for (bool little : {true, false}) {
            const std::vector<unsigned char> bytes = withOrientation(plain, orientation, little);
            const GreyImage up = readImageFromMemory(bytes.data(), bytes.size(), "o.jpg");
            const bool swapped = orientation >= 5;
            ASSERT_EQ(up.width(), swapped ? h : w) << orientation;
            ASSERT_EQ(up.height(), swapped ? w : h) << orientation;
            for (long y = 0; y < up.height(); y += 5)
                for (long x = 0; x < up.width(); x += 5) {
                    long sx = x, sy = y;
                    switch (orientation) {
                    case 2: sx = w - 1 - x; break;
                    case 3: sx = w - 1 - x, sy = h - 1 - y; break;
                    case 4: sy = h - 1 - y; break;
                    case 5: sx = y, sy = x; break;
                    case 6: sx = y, sy = h - 1 - x; break;
                    case 7: sx = w - 1 - y, sy = h - 1 - x; break;
                    case 8: sx = w - 1 - y, sy = x; break;
                    default: break;
                    }
                    EXPECT_NEAR(up.pixels8(x, y), 20 + 3 * sx + 2 * sy, 3) << orientation << " at " << x << "," << y;
                }
        }
}

// Every cut of a JPEG, and damaged bytes, give an ImageError naming the file.
TEST(ImageIO, CorruptAndTruncatedJpegAreRefusedCleanly)
{
    const std::vector<unsigned char> bytes = encodeImage("j.jpg", sampleChannels(3, 8, 40, 30), Format::Jpeg);
    for (std::size_t cut = 0; cut + 1 < bytes.size(); cut += std::max<std::size_t>(1, bytes.size() / 37)) {
        const std::string message = imageErrorOf([&] { readImageFromMemory(bytes.data(), cut, "cut.jpg"); });
        EXPECT_NE(message.find("cut.jpg"), std::string::npos) << cut;
    }
    for (std::size_t at = 2; at < bytes.size(); at += 97) {
        std::vector<unsigned char> damaged = bytes;
        damaged[at] ^= 0xA5;
        try {
            readImageFromMemory(damaged.data(), damaged.size(), "damaged.jpg");
        } catch (const ImageError&) {
        }
    }
    // A header announcing 65500 x 65500 pixels in a few bytes is refused from
    // the header, before any allocation of that size.
    const std::string message = imageErrorOf([&] {
        std::vector<unsigned char> huge = bytes;
        for (std::size_t i = 0; i + 8 < huge.size(); ++i)
            if (huge[i] == 0xFF && huge[i + 1] == 0xC0) {   // SOF0: height and width at +5
                huge[i + 5] = 0xFF, huge[i + 6] = 0xDC, huge[i + 7] = 0xFF, huge[i + 8] = 0xDC;
                break;
            }
        readImageFromMemory(huge.data(), huge.size(), "huge.jpg");
    });
    EXPECT_NE(message.find("image is 65500 x 65500"), std::string::npos) << message;
}
#endif

// The fuzz target's seeds are real images of every reader: each is read
// whole, with its channels and streamed (all but the crafted bad tile).
TEST(ImageIO, FuzzSeedsAreReadableImages)
{
    const std::string dir = std::string(KXIO_FUZZ_CORPUS) + "/image_readers/";
    int read = 0;
    for (const char* name : {"pgm8", "pgm16", "pgm-ascii", "png8", "png16", "png-rgba-channels", "tiff8",
                             "tiff16-region", "tiff-rgb-streamed", "jpeg-grey", "jpeg-colour-channels",
                             "jpeg-colour-streamed", "jpeg-region", "jpeg-exif-orientation-6"}) {
        const std::string format(name, 3);
        if ((format == "png" && !pngSupported()) || (format == "tif" && !tiffSupported()) ||
            (format == "jpe" && !jpegSupported()))
            continue;
        const std::vector<char> file = bytesOf(dir + name);
        ASSERT_GT(file.size(), 1u) << name;
        const auto* data = reinterpret_cast<const unsigned char*>(file.data()) + 1;
        const Image image = readChannelsFromMemory(data, file.size() - 1, name);
        EXPECT_GT(image.width(), 0) << name;
        EXPECT_EQ(readImageFromMemory(data, file.size() - 1, name).width(), image.width()) << name;
        Collect rows;
        streamImageFromMemory(data, file.size() - 1, name, rows, Channels::Keep);
        EXPECT_EQ(static_cast<long>(rows.rows_.size()), image.height()) << name;
        ++read;
    }
    EXPECT_GE(read, 3);
}
