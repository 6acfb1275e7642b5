// The register and peaks commands: what the analysis functions find, printed.
#include "commands.h"
#include "large_images.h"
#include "windowing.h"

#include <kx/analysis.h>

#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>

namespace kxcli {

const CommandTable kRegisterCommand{
    "register",
    "register REFERENCE MOVING [--window hann|tukey|none] [--taper F] [--region X,Y,W,H] [--json]",
    "Measures the translation between two images of the same size by phase\n"
    "correlation, to a fraction of a pixel, and prints 'dx dy confidence':\n"
    "MOVING's content lies dx pixels right of and dy pixels below where it lies\n"
    "in REFERENCE, that is moving(x + dx, y + dy) = reference(x, y). The\n"
    "confidence is the height of the normalised correlation peak, 0 to 1: a few\n"
    "hundredths for unrelated images, typically 0.1 or more for two views of one\n"
    "scene. Each image is freed of its mean and windowed first; sizes need not be\n"
    "powers of two. The images may differ in bit depth. Shifts up to about 40%\n"
    "of the image's side are found. Images larger than 2048 pixels in a side\n"
    "are registered on reduced copies, then refined on a 1024 x 1024 window at\n"
    "full resolution.",
    {
        {"--window", nullptr, "NAME",
         "hann (default), tukey or none: the window against\n"
         "the images' edges"},
        kTaperOption,
        kRegionOption,
        {"--json", nullptr, nullptr, "print a JSON object with dx, dy and confidence"},
    },
    nullptr};

const CommandTable kPeaksCommand{
    "peaks",
    "peaks IN [--max N] [--window hann|tukey|none] [--taper F] [--region X,Y,W,H] [--json]",
    "Lists the periodic components of an image (a woven, printed or machined\n"
    "texture, stripes, interference), strongest first: each one's frequency in\n"
    "cycles per pixel, its period in pixels, its angle in degrees, its strength\n"
    "(peak magnitude over the spectrum's noise floor) and the harmonics found with\n"
    "it, each on its component's side of the spectrum. The angle is the direction\n"
    "of the peak from the middle of the 'kxfreq spectrum' picture: 0 is a pattern\n"
    "whose brightness varies along x (vertical stripes), 90 one that varies along\n"
    "y, and positive angles turn from +x towards +y, clockwise on the screen;\n"
    "components are given at 0 to 180 degrees. Period and angle are what 'kxfreq\n"
    "filter --gabor-reject --period P --angle DEG' takes; 'kxfreq filter\n"
    "--remove-texture' removes them all at once. An image larger than 2048 pixels\n"
    "in a side is searched on the averaged spectrum of its overlapping 1024 x 1024\n"
    "tiles, read row by row.",
    {
        kMaxComponentsOption,
        {"--window", nullptr, "NAME",
         "hann (default), tukey or none: the window against\n"
         "the image's edges; peak positions are measured for\n"
         "its peak shape, so frequencies do not move with it"},
        kTaperOption,
        kRegionOption,
        {"--json", nullptr, nullptr, "print a JSON object instead of lines of text"},
    },
    nullptr};

namespace {

std::string fixed(double v, int decimals)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.*f", decimals, v);
    const std::string text = buffer;
    // No "-0.00": a value that rounds to zero is printed as zero.
    return text.find_first_not_of("-0.") == std::string::npos && text[0] == '-' ? text.substr(1) : text;
}

kxPelBuffer<double> toDouble(const kxio::GreyImage& image)
{
    kxPelBuffer<double> out(image.width(), image.height());
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.width(); ++x)
            out(x, y) = image.bits == 8 ? image.pixels8(x, y) : image.pixels16(x, y);
    return out;
}

}  // namespace

namespace {

template <typename T>
kxImageView<const T> viewOf(const kxPelBuffer<T>& image)
{
    return kxImageView<const T>(kfImageView<T>(image));
}

// Two images larger than one transform: a coarse shift on reduced copies,
// refined on full-resolution windows.
kxPhaseCorrelation correlateLarge(const kxio::GreyImage& reference, const kxio::GreyImage& moving,
                                  const kxPhaseCorrelationOptions& correlation)
{
    kxLargeRegistrationOptions options;
    options.correlation = correlation;
    if (reference.bits != moving.bits)
        return kf_PhaseCorrelateLarge(viewOf(toDouble(reference)), viewOf(toDouble(moving)), options);
    if (reference.bits == 8)
        return kf_PhaseCorrelateLarge(viewOf(reference.pixels8), viewOf(moving.pixels8), options);
    return kf_PhaseCorrelateLarge(viewOf(reference.pixels16), viewOf(moving.pixels16), options);
}

}  // namespace

int runRegister(const std::vector<std::string>& args)
{
    const Options options(kRegisterCommand, args);
    if (options.positional().size() != 2)
        throw UsageError("register takes two images: REFERENCE MOVING");
    const std::string& referencePath = options.positional()[0];
    const std::string& movingPath = options.positional()[1];
    kxPhaseCorrelationOptions correlation;
    correlation.window = windowOption(options, "hann");
    const kxio::Region region = regionOption(options);

    // Larger than one transform: held whole, registered coarse to fine.
    const bool large = !fitsOneTransform(referencePath, region) || !fitsOneTransform(movingPath, region);
    auto read = [&](const std::string& path) {
        return large ? kxio::readImage(path, region, kxio::ReadLimits{kxio::kMaxSide, ""}, printNote)
                     : readInput(path, region);
    };
    const kxio::GreyImage reference = read(referencePath);
    const kxio::GreyImage moving = read(movingPath);
    if (reference.width() != moving.width() || reference.height() != moving.height())
        throw CommandError("the images differ in size: " + referencePath + " is " + std::to_string(reference.width()) +
                           " x " + std::to_string(reference.height()) + ", " + movingPath + " is " +
                           std::to_string(moving.width()) + " x " + std::to_string(moving.height()) +
                           " (--region X,Y,W,H cuts the same part out of both)");
    kxPhaseCorrelation r;
    try {
        if (large)
            r = correlateLarge(reference, moving, correlation);
        else if (reference.bits != moving.bits)   // compared as numbers: correlation ignores scale
            r = kfPhaseCorrelate<double>(toDouble(reference), toDouble(moving), correlation);
        else if (reference.bits == 8)
            r = kfPhaseCorrelate<unsigned char>(reference.pixels8, moving.pixels8, correlation);
        else
            r = kfPhaseCorrelate<unsigned short>(reference.pixels16, moving.pixels16, correlation);
    } catch (const kxFrequencyDefs::InvalidSize& e) {
        throw CommandError(referencePath + " and " + movingPath + ": " + e.what());
    }

    if (options.has("--json"))
        std::cout << "{\"dx\": " << jsonNumber(r.dx) << ", \"dy\": " << jsonNumber(r.dy)
                  << ", \"confidence\": " << jsonNumber(r.confidence)
                  << ", \"reference\": " << jsonString(referencePath)
                  << ", \"moving\": " << jsonString(movingPath) << ", \"width\": " << reference.width()
                  << ", \"height\": " << reference.height() << "}\n";
    else
        std::cout << fixed(r.dx, 3) << " " << fixed(r.dy, 3) << " " << fixed(r.confidence, 3) << "\n";
    return 0;
}

int runPeaks(const std::vector<std::string>& args)
{
    const Options options(kPeaksCommand, args);
    const std::string in = singleInput(options, "peaks");
    kxPeriodicSearchOptions search;
    search.maxComponents = maxComponentsOption(options);
    const kxWindow window = windowOption(options, "hann");
    const kxio::Region region = regionOption(options);
    std::vector<kxPeriodicComponent> components;
    if (!fitsOneTransform(in, region)) {
        // Found on the averaged spectrum of the image's tiles, each windowed.
        components = kfFindPeriodicComponents(welchSpectrumOf(in, window), search);
    } else {
        const kxio::GreyImage image = readInput(in, region);
        // The library's own search windows with Hann; other windows are applied
        // here, and the peaks re-measured for their shape.
        if (window.type == kxWindow::eHann) {
            components = image.bits == 8 ? kfFindPeriodicComponents<unsigned char>(image.pixels8, search)
                                         : kfFindPeriodicComponents<unsigned short>(image.pixels16, search);
        } else {
            kxFrequencyBuffer spectrum;
            forwardWindowed(image, window, spectrum);
            components = kfFindPeriodicComponents(spectrum, search);
            refineForWindow(components, spectrum, image.width(), image.height(), window);
        }
    }
    if (options.has("--json")) {
        const kxio::ImageInfo info = kxio::readInfo(in);
        const long width = region.whole() ? info.width : region.width;
        const long height = region.whole() ? info.height : region.height;
        std::cout << "{\"input\": " << jsonString(in) << ", \"width\": " << width << ", \"height\": " << height
                  << ", \"components\": " << componentsJson(components) << "}\n";
        return 0;
    }
    if (components.empty())
        std::cout << "no periodic components found\n";
    for (const std::string& line : componentLines(components))
        std::cout << line << "\n";
    return 0;
}

// ---------------------------------------------------------------------------

namespace {

// A frequency of a real pattern as the tool states it: of the two conjugate
// peaks, the one on the side of (sideX, sideY): for a component the one at an
// angle from 0 up to 180 degrees, for a harmonic the one on its component's
// side.
struct Wave {
    double fx, fy, frequency, period, degrees;
};

Wave waveOf(double fx, double fy, double sideX = 1e-9, double sideY = 1)
{
    if (fx * sideX + fy * sideY < 0) {
        fx = -fx;
        fy = -fy;
    }
    const double f = std::hypot(fx, fy);
    return Wave{fx, fy, f, f > 0 ? 1 / f : 0, std::atan2(fy, fx) * 180 / 3.141592653589793};
}

std::string waveText(const Wave& w, double strength)
{
    return "frequency " + fixed(w.frequency, 5) + " period " + fixed(w.period, 3) + " angle " + fixed(w.degrees, 2) +
           " strength " + fixed(strength, 1);
}

std::string waveJson(const Wave& w, double strength)
{
    return "\"frequency\": " + jsonNumber(w.frequency) + ", \"period\": " + jsonNumber(w.period) +
           ", \"angle\": " + jsonNumber(w.degrees) + ", \"fx\": " + jsonNumber(w.fx) + ", \"fy\": " + jsonNumber(w.fy) +
           ", \"strength\": " + jsonNumber(strength);
}

}  // namespace

std::vector<std::string> componentLines(const std::vector<kxPeriodicComponent>& components)
{
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < components.size(); ++i) {
        const kxPeriodicComponent& c = components[i];
        lines.push_back("component " + std::to_string(i + 1) + ": " + waveText(waveOf(c.fx, c.fy), c.strength) +
                        " harmonics " + std::to_string(c.harmonics.size()));
        for (const kxPeriodicHarmonic& h : c.harmonics)
            lines.push_back("  harmonic " + std::to_string(h.order) + ": " +
                            waveText(waveOf(h.fx, h.fy, c.fx, c.fy), h.strength));
    }
    return lines;
}

std::string componentsJson(const std::vector<kxPeriodicComponent>& components)
{
    std::ostringstream out;
    out << "[";
    for (std::size_t i = 0; i < components.size(); ++i) {
        const kxPeriodicComponent& c = components[i];
        out << (i ? ", " : "") << "{" << waveJson(waveOf(c.fx, c.fy), c.strength) << ", \"harmonics\": [";
        for (std::size_t k = 0; k < c.harmonics.size(); ++k) {
            const kxPeriodicHarmonic& h = c.harmonics[k];
            out << (k ? ", " : "") << "{\"order\": " << h.order << ", "
                << waveJson(waveOf(h.fx, h.fy, c.fx, c.fy), h.strength) << "}";
        }
        out << "]}";
    }
    out << "]";
    return out.str();
}

}  // namespace kxcli
