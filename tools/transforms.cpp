#include "commands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <mutex>

namespace kxcli {

const OptionEntry kRegionOption{"--region", nullptr, "X,Y,W,H",
                               "work on the W x H part of the image whose top-left\n"
                               "pixel is (X, Y); images up to 65535 in a side"};
const OptionEntry kPadOption{"--pad", nullptr, "zero|mirror",
                            "fill the grid up to the power-of-two size with\n"
                            "zeros or with the image mirrored at its borders\n"
                            "(default mirror)"};

const OptionEntry kMaxComponentsOption{"--max", nullptr, "N",
                                       "at most N periodic components, strongest first\n"
                                       "(1 to 100, default 8)"};

long maxComponentsOption(const Options& options) { return options.integer("--max", 8, 1, 100); }

kxio::Region regionOption(const Options& options)
{
    kxio::Region region;
    if (!options.has("--region"))
        return region;
    const std::string text = options.value("--region");
    long values[4];
    std::size_t start = 0;
    for (int i = 0; i < 4; ++i) {
        const std::size_t comma = text.find(',', start);
        if ((comma == std::string::npos) != (i == 3))
            optionError("--region", "expects X,Y,W,H, not '" + text + "'");
        const std::string part = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        char* end = nullptr;
        const long v = std::strtol(part.c_str(), &end, 10);
        if (part.empty() || *end != '\0' || v < 0 || v > kxio::kMaxSide)
            optionError("--region", "expects four whole numbers from 0 to 65535 (X,Y,W,H), not '" + text + "'");
        values[i] = v;
        start = comma + 1;
    }
    if (values[2] < 1 || values[3] < 1)
        optionError("--region", "width and height must be at least 1");
    region.x = values[0], region.y = values[1], region.width = values[2], region.height = values[3];
    return region;
}

std::string singleInput(const Options& options, const char* command)
{
    if (options.positional().size() != 1)
        throw UsageError(std::string(command) + " takes exactly one input image");
    return options.positional()[0];
}

std::string outputOption(const Options& options)
{
    const std::string out = options.value("--out");
    if (out.empty())
        throw UsageError("an output is needed (-o OUT)");
    return out;
}

Padding paddingOption(const Options& options, Padding fallback)
{
    const std::string pad = options.choice("--pad", {"zero", "mirror"}, fallback == Padding::Zero ? "zero" : "mirror");
    return pad == "zero" ? Padding::Zero : Padding::Mirror;
}

std::string jsonString(const std::string& s)
{
    std::string out = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
            out += buffer;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string jsonNumber(double v)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.17g", v);
    return buffer;
}

std::string formatSeconds(double seconds)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.3f s", seconds);
    return buffer;
}

void printLine(std::ostream& stream, const std::string& line)
{
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    stream << line << "\n" << std::flush;
}

namespace {

kxio::ReadLimits transformLimits()
{
    kxio::ReadLimits limits;
    limits.maxSide = kxio::kTransformMaxSide;
    limits.hint = "; use --region X,Y,W,H to work on a part of it";
    return limits;
}

}  // namespace

void printNote(const std::string& notice) { printLine(std::cerr, "kxfreq: note: " + notice); }

kxio::GreyImage readInput(const std::string& path, const kxio::Region& region)
{
    return kxio::readImage(path, region, transformLimits(), printNote);
}

kxio::Image readInputChannels(const std::string& path, const kxio::Region& region, kxio::Channels channels)
{
    if (channels == kxio::Channels::Grey)
        return kxio::fromGrey(readInput(path, region));
    return kxio::readChannels(path, region, transformLimits(), printNote);
}

namespace {

// Index into [0, n) of position p of the padded axis: the image's pixels,
// then its right (bottom) border mirrored, then its left (top) border
// mirrored, meeting half-way so that the grid wraps round smoothly.
long mirrored(long p, long n, long padded)
{
    if (p < n)
        return p;
    const long fill = padded - n;
    const long j = p - n;
    long i = j < (fill + 1) / 2 ? n - 1 - j : padded - p - 1;
    return std::min(n - 1, std::max(0L, i));
}

template <typename T>
void forwardMirrored(const kxPelBuffer<T>& image, kxFrequencyBuffer& spectrum)
{
    const long w = image.width(), h = image.height();
    // The library decides the padded size.
    spectrum = kxFrequencyBuffer(w, h);
    const long pw = spectrum.width(), ph = spectrum.height();
    if (pw == w && ph == h) {
        kfForwardFFT<T>(image, spectrum);
        return;
    }
    kxPelBuffer<T> grid(pw, ph);
    for (long y = 0; y < ph; ++y) {
        const long sy = mirrored(y, h, ph);
        for (long x = 0; x < pw; ++x)
            grid(x, y) = image(mirrored(x, w, pw), sy);
    }
    kfForwardFFT<T>(grid, spectrum);
}

}  // namespace

void forward(const kxPelBuffer<double>& image, Padding padding, kxFrequencyBuffer& spectrum)
{
    if (padding == Padding::Mirror)
        forwardMirrored(image, spectrum);
    else
        kfForwardFFT<double>(image, spectrum);
}

void forward(const kxio::GreyImage& image, Padding padding, kxFrequencyBuffer& spectrum)
{
    if (padding == Padding::Mirror) {
        if (image.bits == 8)
            forwardMirrored(image.pixels8, spectrum);
        else
            forwardMirrored(image.pixels16, spectrum);
    } else if (image.bits == 8) {
        kfForwardFFT<unsigned char>(image.pixels8, spectrum);
    } else {
        kfForwardFFT<unsigned short>(image.pixels16, spectrum);
    }
}

Complex inverseComplex(const kxFrequencyBuffer& spectrum, long width, long height)
{
    Complex whole;
    kfInverseFFT(spectrum, whole.real, whole.imag);
    if (whole.real.width() == width && whole.real.height() == height)
        return whole;
    Complex cropped{kxPelBuffer<double>(width, height), kxPelBuffer<double>(width, height)};
    for (long y = 0; y < height; ++y)
        for (long x = 0; x < width; ++x) {
            cropped.real(x, y) = whole.real(x, y);
            cropped.imag(x, y) = whole.imag(x, y);
        }
    return cropped;
}

kxio::GreyImage toPixels(const Complex& result, int bits, OutputMode mode, bool stretch)
{
    const long w = result.real.width(), h = result.real.height();
    const double top = bits == 8 ? 255.0 : 65535.0;
    const double mid = bits == 8 ? 128.0 : 32768.0;
    kxPelBuffer<double> values(w, h);
    double lo = HUGE_VAL, hi = -HUGE_VAL;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            const double re = result.real(x, y), im = result.imag(x, y);
            double v = mode == OutputMode::Magnitude ? std::sqrt(re * re + im * im) : re;
            if (mode == OutputMode::Signed && !stretch)
                v += mid;
            if (!std::isfinite(v))
                v = 0;
            values(x, y) = v;
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
    double gain = 1, offset = 0;
    if (stretch) {
        if (mode == OutputMode::Signed) {
            // Keep zero at mid-grey: stretch the largest deviation to the edge.
            const double reach = std::max(std::fabs(lo), std::fabs(hi));
            gain = reach > 0 ? (top - mid) / reach : 1;
            offset = mid;
        } else {
            gain = hi > lo ? top / (hi - lo) : 1;
            offset = -lo * gain;
        }
    }
    return kxio::roundedImage(bits, w, h, [&](long x, long y) { return values(x, y) * gain + offset; });
}

}  // namespace kxcli
