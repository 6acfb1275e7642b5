// The demo: a synthetic inspection image (a woven texture with a scratch and
// noise), its spectrum, a band-reject filter tuned to the texture, and the
// filtered result in which the scratch stands out.
#include "bitmap_font.h"
#include "commands.h"

#include <kx/freqfilt.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdint>
#include <filesystem>
#include <iostream>

namespace kxcli {

const CommandSpec kDemoCommand{
    "demo",
    "demo [--out DIR]",
    "Synthesises a 512 x 512 inspection image (a woven texture with a scratch\n"
    "and some noise), removes the texture with a band-reject filter and writes\n"
    "input, spectrum, filter, result and a captioned overview picture into DIR\n"
    "(default: kxfreq-demo). Prints the paths and the scratch's contrast\n"
    "against the background before and after.",
    {
        {"--out", "-o", "DIR", "the directory to write into (default kxfreq-demo)"},
    },
    nullptr};

namespace {

constexpr long kSize = 512;
constexpr double kPi = 3.141592653589793;
constexpr double kTexture = 1.0 / 8;   // cycles per pixel: a period of 8 pixels

bool onScratch(long x, long y)
{
    // A thin diagonal scratch, 2 pixels wide and about 110 long.
    const double d = std::fabs((x - 300) - 0.6 * (y - 180)) / std::sqrt(1.36);
    return d < 1.0 && y > 180 && y < 275;
}

kxPelBuffer<unsigned char> inspectionImage()
{
    kxPelBuffer<unsigned char> image(kSize, kSize);
    std::uint32_t state = 12345;
    for (long y = 0; y < kSize; ++y)
        for (long x = 0; x < kSize; ++x) {
            state = state * 1664525u + 1013904223u;
            const double noise = (static_cast<double>(state >> 8) / 16777216.0 - 0.5) * 16.0;
            const double weave = 45.0 * std::cos(2 * kPi * kTexture * x) + 45.0 * std::cos(2 * kPi * kTexture * y);
            const double scratch = onScratch(x, y) ? 30.0 : 0.0;
            image(x, y) = static_cast<unsigned char>(std::lround(std::min(255.0, std::max(0.0, 120.0 + weave + noise + scratch))));
        }
    return image;
}

// The scratch's mean above the background's, in background standard
// deviations (the background excludes a margin around the scratch).
double scratchContrast(const kxPelBuffer_const<double>& image)
{
    double scratch = 0, sum = 0, sumSq = 0;
    long ns = 0, nb = 0;
    for (long y = 8; y < kSize - 8; ++y)
        for (long x = 8; x < kSize - 8; ++x) {
            if (onScratch(x, y)) {
                scratch += image(x, y);
                ++ns;
                continue;
            }
            bool near = false;
            for (long dy = -6; dy <= 6 && !near; dy += 3)
                for (long dx = -6; dx <= 6 && !near; dx += 3)
                    near = onScratch(x + dx, y + dy);
            if (!near) {
                sum += image(x, y);
                sumSq += image(x, y) * image(x, y);
                ++nb;
            }
        }
    const double mean = sum / nb;
    return (scratch / ns - mean) / std::sqrt(sumSq / nb - mean * mean);
}

kxPelBuffer<double> asDouble(const kxPelBuffer_const<unsigned char>& image)
{
    kxPelBuffer<double> out(image.width(), image.height());
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.width(); ++x)
            out(x, y) = image(x, y);
    return out;
}

// A line of pixels from (x0, y0) to (x1, y1), one pixel wide.
void drawLine(kxPelBuffer<unsigned char>& image, long x0, long y0, long x1, long y1, unsigned char value)
{
    const long steps = std::max(std::labs(x1 - x0), std::labs(y1 - y0));
    for (long i = 0; i <= steps; ++i) {
        const long x = x0 + (steps ? (x1 - x0) * i / steps : 0);
        const long y = y0 + (steps ? (y1 - y0) * i / steps : 0);
        if (x >= 0 && y >= 0 && x < image.width() && y < image.height())
            image(x, y) = value;
    }
}

// The angle convention in a corner of the spectrum picture: 0 degrees along
// +x, 90 degrees along +y (downwards).
void drawAngleKey(kxPelBuffer<unsigned char>& image)
{
    const long ox = 14, oy = 14, length = 40;
    for (int d = 0; d < 2; ++d) {
        drawLine(image, ox, oy + d, ox + length, oy + d, 255);                    // +x
        drawLine(image, ox + d, oy, ox + d, oy + length, 255);                    // +y
        drawLine(image, ox + length - 6, oy - 5 + d, ox + length, oy + d, 255);   // arrow heads
        drawLine(image, ox + length - 6, oy + 6 + d, ox + length, oy + d, 255);
        drawLine(image, ox - 5 + d, oy + length - 6, ox + d, oy + length, 255);
        drawLine(image, ox + 6 + d, oy + length - 6, ox + d, oy + length, 255);
    }
    drawText(image, ox + length + 6, oy - 6, "0*", 2, 255);
    drawText(image, ox - 4, oy + length + 6, "90*", 2, 255);
}

// Two rows of two pictures, each kSize x kSize, with a caption above each.
kxPelBuffer<unsigned char> overview(const kxPelBuffer_const<unsigned char>* pictures[4], const char* captions[4])
{
    const long gap = 8, band = 30;
    const long cell = kSize + band;
    kxPelBuffer<unsigned char> out(2 * kSize + 3 * gap, 2 * cell + 3 * gap);
    kfPelSet<unsigned char>(out, 32);
    for (int i = 0; i < 4; ++i) {
        const long left = gap + (i % 2) * (kSize + gap), top = gap + (i / 2) * (cell + gap);
        drawText(out, left + 2, top + (band - textHeight(2)) / 2 - 2, captions[i], 2, 255);
        kxPelBuffer_const<unsigned char> placed = *pictures[i];
        placed.offset(kxPair<long>(left, top + band));
        kfPelCopy(placed, out);
    }
    return out;
}

}  // namespace

int runDemo(const std::vector<std::string>& args)
{
    const Options options(kDemoCommand, args);
    if (!options.positional().empty())
        throw UsageError("demo takes no input file");
    const std::string dir = options.value("--out", "kxfreq-demo");
    std::filesystem::create_directories(dir);
    const std::string ext = kxio::pngSupported() ? ".png" : ".pgm";
    auto path = [&](const char* name) { return (std::filesystem::path(dir) / (name + ext)).string(); };

    const kxPelBuffer<unsigned char> input = inspectionImage();

    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(input, spectrum);
    kxPelBuffer<unsigned char> spectrumPicture = autoContrastLogPicture(spectrum.getMagnitudeImage(true));
    drawAngleKey(spectrumPicture);

    // The weave's frequencies lie on a ring of radius 1/8 cycle per pixel.
    const kxFrequencyFilterBandReject filter(0.004, 0.004, kTexture, kxPair<long>(spectrum.width(), spectrum.height()),
                                             1);
    kxFrequencyBuffer ones(spectrum.width(), spectrum.height());
    for (long y = 0; y < ones.height(); ++y)
        for (long x = 0; x < ones.width(); ++x)
            ones.putReal(x, y, 1.0, false);
    filter.apply(ones);
    const kxPelBuffer<unsigned char> filterPicture =
        kfFrequencyMapImage(ones.getRealImage(true), kxFrequencyDefs::eMapLinear, 0, 0);

    filter.apply(spectrum);
    const Complex filtered = inverseComplex(spectrum, kSize, kSize);
    const kxio::GreyImage result = toPixels(filtered, 8, OutputMode::Real, true);

    const kxPelBuffer_const<unsigned char>* pictures[4] = {&input, &spectrumPicture, &filterPicture, &result.pixels8};
    const char* captions[4] = {"INPUT: WEAVE + SCRATCH + NOISE", "SPECTRUM: LOG, AUTO CONTRAST",
                               "BAND-REJECT GAIN AT 1/8 (BLACK = 0)", "RESULT (STRETCHED)"};
    const char* names[5] = {"input", "spectrum", "filter", "result", "overview"};
    for (int i = 0; i < 4; ++i)
        kxio::writeImage(path(names[i]), kxio::makeImage8(*static_cast<const kxPelBuffer<unsigned char>*>(pictures[i])));
    kxio::writeImage(path(names[4]), kxio::makeImage8(overview(pictures, captions)));

    for (const char* name : names)
        std::cout << path(name) << "\n";
    std::cout << "scratch contrast against the background: " << scratchContrast(asDouble(input)) << " -> "
              << scratchContrast(filtered.real) << " standard deviations\n";
    return 0;
}

}  // namespace kxcli
