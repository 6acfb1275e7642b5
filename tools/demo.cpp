// The demo: a synthetic inspection image (a woven texture with a scratch and
// noise), its spectrum, a band-reject filter tuned to the texture, and the
// filtered result in which the scratch stands out.
#include "bitmap_font.h"
#include "commands.h"
#include "spectrum_picture.h"

#include <kx/freqfilt.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <vector>

namespace kxcli {

const CommandTable kDemoCommand{
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
    const long ox = 10, oy = 12, length = 30;
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

void drawCircle(kxPelBuffer<unsigned char>& image, long cx, long cy, long r, unsigned char value)
{
    for (int i = 0; i < 360; ++i) {
        const long x = cx + std::lround(r * std::cos(i * kPi / 180)), y = cy + std::lround(r * std::sin(i * kPi / 180));
        if (x >= 0 && y >= 0 && x < image.width() && y < image.height())
            image(x, y) = value;
    }
}

// The `count` strongest frequencies of a centred magnitude image away from
// the zero frequency, at least 8 bins apart.
std::vector<kxPair<long>> strongestPeaks(const kxPelBuffer<double>& magnitude, int count)
{
    std::vector<kxPair<long>> peaks;
    const long cx = magnitude.width() / 2, cy = magnitude.height() / 2;
    for (int n = 0; n < count; ++n) {
        double best = -1;
        kxPair<long> at(0, 0);
        for (long y = 0; y < magnitude.height(); ++y)
            for (long x = 0; x < magnitude.width(); ++x) {
                if (std::labs(x - cx) < 3 && std::labs(y - cy) < 3)
                    continue;
                bool taken = false;
                for (const kxPair<long>& p : peaks)
                    taken = taken || (std::labs(x - p.x()) < 8 && std::labs(y - p.y()) < 8);
                if (!taken && magnitude(x, y) > best) {
                    best = magnitude(x, y);
                    at = kxPair<long>(x, y);
                }
            }
        peaks.push_back(at);
    }
    return peaks;
}

// Half size, each pixel the rounded mean of a 2 x 2 block.
kxPelBuffer<unsigned char> halved(const kxPelBuffer_const<unsigned char>& image)
{
    kxPelBuffer<unsigned char> out(image.width() / 2, image.height() / 2);
    for (long y = 0; y < out.height(); ++y)
        for (long x = 0; x < out.width(); ++x)
            out(x, y) = static_cast<unsigned char>((image(2 * x, 2 * y) + image(2 * x + 1, 2 * y) +
                                                    image(2 * x, 2 * y + 1) + image(2 * x + 1, 2 * y + 1) + 2) / 4);
    return out;
}

// The middle half (in both directions) of a centred spectrum picture:
// frequencies up to 1/4 cycle per pixel.
kxPelBuffer<unsigned char> middle(const kxPelBuffer_const<unsigned char>& picture)
{
    kxPelBuffer<unsigned char> out(picture.width() / 2, picture.height() / 2);
    for (long y = 0; y < out.height(); ++y)
        for (long x = 0; x < out.width(); ++x)
            out(x, y) = picture(picture.width() / 4 + x, picture.height() / 4 + y);
    return out;
}

// Two rows of two cells, each a caption above a panel. The spectrum and the
// gain carry frequency axes; input and result are placed where the other
// two have their pictures, so that the four squares line up.
Picture overview(const Picture* panels[4], const char* captions[4], const PictureRect& plot)
{
    const long gap = 6, band = 24;
    const long cellWidth = panels[1]->levels.width(), cellHeight = band + panels[1]->levels.height();
    Picture out;
    out.levels = kxPelBuffer<unsigned char>(2 * cellWidth + 3 * gap, 2 * cellHeight + 3 * gap);
    kfPelSet<unsigned char>(out.levels, 24);
    for (int i = 0; i < 4; ++i) {
        const long left = gap + (i % 2) * (cellWidth + gap), top = gap + (i / 2) * (cellHeight + gap);
        const bool framed = panels[i]->levels.width() == cellWidth;
        drawText(out.levels, left + plot.x, top + (band - textHeight(2)) / 2 - 1, captions[i], 2, 255);
        place(out, *panels[i], left + (framed ? 0 : plot.x), top + band + (framed ? 0 : plot.y));
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
    // The log magnitude from its median to its strongest frequency other than
    // zero: the noise stays dark and the weave's peaks are white.
    const kxPelBuffer<unsigned char> spectrumPicture = logPicture(spectrum.getMagnitudeImage(true), 0.5, 1.0, true);
    // The overview shows the middle of the spectrum (frequencies up to 1/4
    // cycle per pixel) with the four strongest peaks circled.
    kxPelBuffer<unsigned char> spectrumPanel = middle(spectrumPicture);
    drawAngleKey(spectrumPanel);
    for (const kxPair<long>& peak : strongestPeaks(spectrum.getMagnitudeImage(true), 4))
        drawCircle(spectrumPanel, peak.x() - kSize / 4, peak.y() - kSize / 4, 7, 255);

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
    const char* names[5] = {"input", "spectrum", "filter", "result", "overview"};
    for (int i = 0; i < 4; ++i)
        kxio::writeImage(path(names[i]), kxio::makeImage8(*static_cast<const kxPelBuffer<unsigned char>*>(pictures[i])));

    // The middle half of the spectrum and of the gain, with their axes: the
    // spectrum in colour where PNG can carry it, the gain in grey (black is 0).
    const FrequencyScale middleScale{-0.25, 1.0 / kSize};
    const Picture spectrumFramed = withAxes(spectrumPanel, middleScale, middleScale, 1);
    Picture gainFramed = withAxes(middle(filterPicture), middleScale, middleScale, 1);
    gainFramed.mapped.clear();   // grey like input and result
    Picture inputPanel = plainPicture(halved(input)), resultPanel = plainPicture(halved(result.pixels8));
    inputPanel.mapped.clear();
    resultPanel.mapped.clear();
    const Picture* panels[4] = {&inputPanel, &spectrumFramed, &gainFramed, &resultPanel};
    const char* captions[4] = {"INPUT", "SPECTRUM", "GAIN", "RESULT"};
    const Colormap map = kxio::pngSupported() ? Colormap::Magma : Colormap::Gray;
    writePicture(path(names[4]),
                 overview(panels, captions, axesPlotArea(kSize / 2, kSize / 2, middleScale, middleScale, 1)), map);

    for (const char* name : names)
        std::cout << path(name) << "\n";
    std::cout << "scratch contrast against the background: " << scratchContrast(asDouble(input)) << " -> "
              << scratchContrast(filtered.real) << " standard deviations\n";
    return 0;
}

}  // namespace kxcli
