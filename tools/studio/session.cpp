#include "session.h"

#include "tiled_result.h"

#include "../colormap.h"
#include "../windowing.h"

#include <algorithm>
#include <cmath>
#include <thread>

namespace kxstudio {

namespace {

// The image reduced by `factor` in each direction, each pixel the mean of
// its factor x factor block (blocks that would cross the border are left
// out).
kxio::GreyImage reduced(const kxio::GreyImage& image, long factor)
{
    const long w = std::max(1L, image.width() / factor), h = std::max(1L, image.height() / factor);
    const long bw = std::min(factor, image.width()), bh = std::min(factor, image.height());
    return kxio::roundedImage(image.bits, w, h, [&](long x, long y) {
        double sum = 0;
        for (long j = 0; j < bh; ++j)
            for (long i = 0; i < bw; ++i)
                sum += image.bits == 8 ? image.pixels8(x * factor + i, y * factor + j)
                                       : image.pixels16(x * factor + i, y * factor + j);
        return sum / static_cast<double>(bw * bh);
    });
}

double quantile(std::vector<double> values, double q)
{
    const std::size_t at = static_cast<std::size_t>(q * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(at), values.end());
    return values[at];
}

// The centred spectrum as log10(1 + |F|), stretched from its median to its
// 99.99th percentile so that periodic peaks stand out; the range is kept for
// the page's colour bar.
kxio::GreyImage spectrumPicture(const kxFrequencyBuffer& spectrum, double& low, double& high)
{
    const kxPelBuffer<double> magnitude = spectrum.getMagnitudeImage(true);
    const long w = magnitude.width(), h = magnitude.height();
    std::vector<double> logs;
    logs.reserve(static_cast<std::size_t>(w * h));
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            logs.push_back(std::log10(1.0 + magnitude(x, y)));
    low = quantile(logs, 0.5);
    high = quantile(logs, 0.9999);
    if (!(high > low))
        high = low + 1;
    return kxio::roundedImage(8, w, h, [&](long x, long y) {
        return (logs[static_cast<std::size_t>(y * w + x)] - low) / (high - low) * 255.0;
    });
}

// The threads a tiled image's work is spread over (results are the same
// for any number).
unsigned tileJobs() { return std::max(1u, std::min(4u, std::thread::hardware_concurrency())); }

// The Welch spectrum of a tiled image, on which its spectrum picture and its
// periodic components are taken (as kfFindPeriodicComponentsTiled takes
// them): frequencies in cycles per pixel of the whole image.
kxFrequencyBuffer welchSpectrum(const kxio::GreyImage& image)
{
    kxWelchOptions options;
    options.segment = kWelchSegment;
    options.jobs = tileJobs();
    return image.bits == 8 ? kfWelchSpectrum(kfImageView<unsigned char>(image.pixels8), options)
                           : kfWelchSpectrum(kfImageView<unsigned short>(image.pixels16), options);
}

std::vector<kxPeriodicComponent> componentsOf(const kxio::GreyImage& image)
{
    if (image.width() < 8 || image.height() < 8)
        return {};   // too small to hold a texture
    return image.bits == 8 ? kfFindPeriodicComponents<unsigned char>(image.pixels8)
                           : kfFindPeriodicComponents<unsigned short>(image.pixels16);
}

}  // namespace

Session::Session(const std::string& path, const kxio::Region& region, kxio::GreyImage image)
    : path_(path), region_(region), image_(std::move(image))
{
    tiled_ = image_.width() > kfMaxTransformSide || image_.height() > kfMaxTransformSide;
    if (!tiled_)
        kxcli::forward(image_, kxcli::Padding::Mirror, spectrum_);
    previewFactor_ = (std::max(image_.width(), image_.height()) + kPreviewSide - 1) / kPreviewSide;
    preview_ = previewFactor_ > 1 ? reduced(image_, previewFactor_) : image_;
    kxcli::forward(preview_, kxcli::Padding::Mirror, previewSpectrum_);

    imagePng_ = kxio::encodeImage("image.png", forDisplay(image_), kxio::Format::Png);
    // Shown as 'kxfreq spectrum' shows it: of the image under a Hann window,
    // so that its edges add no cross over the peaks. The filters act on the
    // mirrored image's spectrum; the frequencies are the same. A tiled
    // image shows its Welch spectrum, of Hann-windowed tiles.
    kxFrequencyBuffer shown;
    std::vector<kxPeriodicComponent> components;
    if (tiled_) {
        shown = welchSpectrum(image_);
        components = kfFindPeriodicComponents(shown);
    } else {
        kxcli::forwardWindowed(image_, kxWindow::hann(), shown);
        components = componentsOf(image_);
    }
    double low = 0, high = 0;
    spectrumPng_ = kxio::encodeImage("spectrum.png", spectrumPicture(shown, low, high), kxio::Format::Png);
    std::string colours;
    for (int level = 0; level < 256; ++level) {
        const kxcli::Rgb c = kxcli::colourOf(kxcli::Colormap::Magma, static_cast<unsigned char>(level));
        colours += (level ? ", [" : "[") + std::to_string(c.r) + ", " + std::to_string(c.g) + ", " +
                   std::to_string(c.b) + "]";
    }

    infoJson_ = "{\"name\": " + kxcli::jsonString(path_) + ", \"width\": " + std::to_string(image_.width()) +
                ", \"height\": " + std::to_string(image_.height()) + ", \"bits\": " + std::to_string(image_.bits) +
                ", \"tiled\": " + (tiled_ ? "true" : "false") +
                ", \"paddedWidth\": " + std::to_string(paddedWidth()) +
                ", \"paddedHeight\": " + std::to_string(paddedHeight()) +
                ", \"spectrumWidth\": " + std::to_string(shown.width()) +
                ", \"spectrumHeight\": " + std::to_string(shown.height()) +
                ", \"previewFactor\": " + std::to_string(previewFactor_) +
                ", \"spectrumLow\": " + kxcli::jsonNumber(low) + ", \"spectrumHigh\": " + kxcli::jsonNumber(high) +
                ", \"colormap\": [" + colours + "]" +
                ", \"components\": " + kxcli::componentsJson(components) + "}";
}

kxio::GreyImage Session::forDisplay(const kxio::GreyImage& image)
{
    const long factor = (std::max(image.width(), image.height()) + kDisplaySide - 1) / kDisplaySide;
    return factor > 1 ? reduced(image, factor) : image;
}

std::unique_ptr<kxFrequencyFilter> Session::combined(const FilterSet& filters) const
{
    if (tiled_)
        throw BadRequest("a filter file holds a filter of one padded size, and this image is larger than one "
                         "transform: export the command or the Python code, which filter it in tiles");
    const std::lock_guard<std::mutex> lock(fullSize_);
    return combinedFilter(filters, kxPair<long>(paddedWidth(), paddedHeight()));
}

kxio::GreyImage Session::render(const FilterSet& filters, bool preview) const
{
    std::unique_lock<std::mutex> lock(fullSize_, std::defer_lock);
    if (!preview)
        lock.lock();
    if (!preview && tiled_)
        return filterTiled(image_, filters, tileJobs());
    const kxio::GreyImage& image = preview ? preview_ : image_;
    kxFrequencyBuffer spectrum = preview ? previewSpectrum_ : spectrum_;
    const double scale = preview ? static_cast<double>(previewFactor_) : 1.0;
    combinedFilter(filters, kxPair<long>(spectrum.width(), spectrum.height()), scale)->apply(spectrum);
    const kxcli::Complex result = kxcli::inverseComplex(spectrum, image.width(), image.height());
    return kxcli::toPixels(result, image.bits, kxcli::OutputMode::Real, false);
}

}  // namespace kxstudio
