// Fuzz target: the tool's image readers (PGM, PNG, TIFF, JPEG, told apart by
// their signatures) on untrusted bytes. The first byte chooses how the rest,
// the file, is read: bit 0 set, a small region of it as grey (the other bits
// place the region); otherwise bits 1 and 2 choose grey or all channels,
// whole or streamed row by row.
#include "image_io.h"

#include <cstddef>
#include <cstdint>

namespace {

// Touches every streamed row, so that a short row would show.
class Sum : public kxio::RowTarget {
public:
    void start(const kxio::ImageInfo& info) override { bytes_ = info.width * info.channels * (info.bits / 8); }
    void row(long, const void* samples) override
    {
        const auto* p = static_cast<const unsigned char*>(samples);
        for (long i = 0; i < bytes_; ++i)
            sum_ += p[i];
    }
    unsigned long sum_ = 0;

private:
    long bytes_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const unsigned char mode = data[0];
    const kxio::Channels channels = mode & 2 ? kxio::Channels::Keep : kxio::Channels::Grey;
    try {
        if (mode & 1) {
            kxio::Region region;
            region.x = (mode >> 1) & 3;
            region.y = (mode >> 3) & 3;
            region.width = 1 + ((mode >> 5) & 7);
            region.height = 2;
            kxio::GreyImage image =
                kxio::readImageFromMemory(data + 1, size - 1, "fuzz", region, {}, [](const std::string&) {});
            (void)image.width();
        } else if (mode & 4) {
            Sum sum;
            kxio::streamImageFromMemory(data + 1, size - 1, "fuzz", sum, channels);
        } else if (channels == kxio::Channels::Keep) {
            kxio::Image image = kxio::readChannelsFromMemory(data + 1, size - 1, "fuzz");
            (void)image.width();
        } else {
            kxio::GreyImage image = kxio::readImageFromMemory(data + 1, size - 1, "fuzz");
            (void)image.width();
        }
    } catch (const kxio::ImageError&) {
    }
    return 0;
}
