// The spectrum and roundtrip commands.
#include "commands.h"
#include "large_images.h"
#include "spectrum_picture.h"
#include "windowing.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>

namespace kxcli {

const CommandTable kSpectrumCommand{
    "spectrum",
    "spectrum IN -o OUT [options]",
    "Writes an 8-bit picture of one component of IN's spectrum, the zero\n"
    "frequency in the middle. Frequency (u, v) in cycles per pixel lies at\n"
    "u x width right of and v x height below the middle: a pattern whose\n"
    "brightness varies along x shows as two peaks left and right of the middle,\n"
    "one varying along y as two peaks above and below it. For the magnitude the\n"
    "image is freed of its mean and multiplied by a Hann window first, so that\n"
    "its borders, seen as the edges of a periodic image, draw no bright cross\n"
    "through the middle; the other parts show the raw transform unless a window\n"
    "is asked for. Without a window the image is padded: mirror (the default)\n"
    "avoids the cross that zero padding draws for a non-power-of-two image, but\n"
    "an oblique pattern's reflection then shows as a weaker pair of peaks at the\n"
    "mirrored angle; --pad zero shows only the image's own frequencies. An image\n"
    "larger than 2048 pixels in a side gives the averaged magnitude spectrum of\n"
    "its overlapping, windowed 1024 x 1024 tiles.",
    {
        {"--out", "-o", "OUT", "the picture to write (.png, .tif or .pgm; .png or\n.ppm with a colour map)"},
        {"--part", nullptr, "PART", "magnitude (default), phase, real or imaginary"},
        {"--map", nullptr, "MAP",
         "auto, clip, linear, range, log or phase; by default\n"
         "auto for the magnitude (the log magnitude stretched\n"
         "from its median to its 99.99th percentile, so that\n"
         "periodic peaks stand out), phase for the phase,\n"
         "linear otherwise"},
        {"--low", nullptr, "L", "the value that maps to 0 with --map range"},
        {"--high", nullptr, "H", "the value that maps to 255 with --map range"},
        {"--centered", nullptr, nullptr, "zero frequency in the middle (default)"},
        {"--uncentered", nullptr, nullptr, "zero frequency at the top-left corner"},
        {"--window", nullptr, "NAME",
         "hann, tukey or none: the window against the image's\n"
         "borders (default hann for the magnitude, none for\n"
         "the other parts)"},
        kTaperOption,
        {"--axes", nullptr, nullptr,
         "frame the picture with ticks labelled in cycles per\n"
         "pixel and, in parentheses, the period in pixels\n"
         "(centred pictures only)"},
        {"--colormap", nullptr, "MAP", "gray (default) or magma (dark purple to pale yellow)"},
        kRegionOption,
        {kPadOption.name, kPadOption.shortName, kPadOption.value,
         "fill the grid up to the power-of-two size with\n"
         "zeros or with the image mirrored at its borders\n"
         "(default mirror; zero with a window)"},
    },
    nullptr};

const CommandTable kRoundtripCommand{
    "roundtrip",
    "roundtrip IN -o OUT [--region X,Y,W,H]",
    "Transforms IN forward and back, writes the result with IN's bit depth and\n"
    "prints the largest pixel difference.",
    {
        {"--out", "-o", "OUT", "the image to write (.png, .tif or .pgm)"},
        kRegionOption,
    },
    nullptr};

namespace {

kxFrequencyDefs::FrequencyMapping mappingNamed(const std::string& name)
{
    if (name == "clip")
        return kxFrequencyDefs::eMapClip;
    if (name == "linear")
        return kxFrequencyDefs::eMapLinear;
    if (name == "log")
        return kxFrequencyDefs::eMapLog;
    if (name == "phase")
        return kxFrequencyDefs::eMapPhase;
    return kxFrequencyDefs::eMapLinearRange;   // range and auto
}

// The value below which a fraction q of the values lie.
double percentile(std::vector<double> values, double q)
{
    const std::size_t k = static_cast<std::size_t>(q * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + static_cast<long>(k), values.end());
    return values[k];
}

// Values from low to high mapped linearly onto 0 to 255, clamped. The values
// are shifted so that the library's range mapping sees a range starting at 0
// (it takes its range from zero when the low end is not negative).
kxPelBuffer<unsigned char> mapRange(const kxPelBuffer<double>& values, double low, double high)
{
    kxPelBuffer<double> shifted(values.width(), values.height());
    for (long y = 0; y < values.height(); ++y)
        for (long x = 0; x < values.width(); ++x)
            shifted(x, y) = values(x, y) - low;
    return kfFrequencyMapImage(shifted, kxFrequencyDefs::eMapLinearRange, 0.0, high - low);
}

}  // namespace

kxPelBuffer<unsigned char> logPicture(const kxPelBuffer<double>& magnitude, double lowQuantile, double highQuantile,
                                      bool skipZeroFrequency)
{
    kxPelBuffer<double> logs(magnitude.width(), magnitude.height());
    std::vector<double> all;
    all.reserve(static_cast<std::size_t>(magnitude.width() * magnitude.height()));
    for (long y = 0; y < magnitude.height(); ++y)
        for (long x = 0; x < magnitude.width(); ++x) {
            logs(x, y) = std::log1p(magnitude(x, y));
            if (!skipZeroFrequency || x != magnitude.width() / 2 || y != magnitude.height() / 2)
                all.push_back(logs(x, y));
        }
    const double low = percentile(all, lowQuantile);
    double high = percentile(all, highQuantile);
    if (!(high > low))
        high = low + 1;
    return mapRange(logs, low, high);
}

kxPelBuffer<unsigned char> autoContrastLogPicture(const kxPelBuffer<double>& magnitude)
{
    return logPicture(magnitude, 0.5, 0.9999, false);
}

int runSpectrum(const std::vector<std::string>& args)
{
    const Options options(kSpectrumCommand, args);
    const std::string in = singleInput(options, "spectrum");
    const std::string out = outputOption(options);
    const Colormap colormap = colormapNamed(options.choice("--colormap", colormapNames(), "gray"));
    checkPictureOutput(out, colormap);   // refuse an output format before any work
    const std::string part = options.choice("--part", {"magnitude", "phase", "real", "imaginary"}, "magnitude");
    const std::string defaultMap = part == "magnitude" ? "auto" : part == "phase" ? "phase" : "linear";
    const std::string map = options.choice("--map", {"auto", "clip", "linear", "range", "log", "phase"}, defaultMap);
    if (options.has("--centered") && options.has("--uncentered"))
        throw UsageError("--uncentered: excludes --centered");
    const bool centered = !options.has("--uncentered");
    if (map != "range") {
        options.refuse("--low", "used only with --map range");
        options.refuse("--high", "used only with --map range");
    } else {
        if (!options.has("--low") || !options.has("--high"))
            optionError(options.has("--low") ? "--high" : "--low", "--map range needs both --low and --high");
    }
    if (map == "auto" && part != "magnitude")
        optionError("--map", "auto is for the magnitude only");
    const double low = options.number("--low", 0), high = options.number("--high", 0);
    if (map == "range" && !(low < high))
        optionError("--low", "the range is inverted or empty (--low " + options.value("--low") + " is not below --high " +
                                 options.value("--high") + ")");
    if (options.has("--axes") && !centered)
        optionError("--axes", "needs the centred picture (not --uncentered)");
    const kxWindow window = windowOption(options, part == "magnitude" ? "hann" : "none");
    // A window brings the borders to zero: the grid is filled with zeros.
    const Padding padding = paddingOption(options, window.type == kxWindow::eNone ? Padding::Mirror : Padding::Zero);
    if (window.type != kxWindow::eNone && padding == Padding::Mirror)
        optionError("--pad", "mirror is used only with --window none (a window brings the borders to zero)");
    const kxio::Region region = regionOption(options);

    kxFrequencyBuffer spectrum;
    if (!fitsOneTransform(in, region)) {
        if (part != "magnitude")
            throw CommandError(in + ": an image larger than " + std::to_string(kfMaxTransformSide) +
                               " in a side has an averaged magnitude spectrum only; use --region X,Y,W,H for " +
                               "the other parts");
        spectrum = welchSpectrumOf(in, window);
    } else {
        const kxio::GreyImage image = readInput(in, region);
        if (window.type == kxWindow::eNone)
            forward(image, padding, spectrum);
        else
            forwardWindowed(image, window, spectrum);
    }
    kxPelBuffer<unsigned char> picture;
    if (map == "auto") {
        picture = autoContrastLogPicture(spectrum.getMagnitudeImage(centered));
    } else {
        kxPelBuffer<double> component;
        if (part == "magnitude")
            component = spectrum.getMagnitudeImage(centered);
        else if (part == "phase")
            component = spectrum.getPhaseImage(centered);
        else if (part == "real")
            component = spectrum.getRealImage(centered);
        else
            component = spectrum.getImaginaryImage(centered);
        picture = map == "range" ? mapRange(component, low, high) : kfFrequencyMapImage(component, mappingNamed(map));
    }
    const Picture shown = options.has("--axes")
                              ? withAxes(picture, centredScale(picture.width()), centredScale(picture.height()),
                                         axisTextScale(picture.width(), picture.height()))
                              : plainPicture(picture);
    writePicture(out, shown, colormap);
    std::cout << out << "\n";
    return 0;
}

int runRoundtrip(const std::vector<std::string>& args)
{
    const Options options(kRoundtripCommand, args);
    const std::string in = singleInput(options, "roundtrip");
    const std::string out = outputOption(options);
    kxio::formatFor(out);
    const kxio::GreyImage image = readInput(in, regionOption(options));
    kxFrequencyBuffer spectrum;
    forward(image, Padding::Zero, spectrum);
    const kxio::GreyImage back =
        toPixels(inverseComplex(spectrum, image.width(), image.height()), image.bits, OutputMode::Real, false);
    long worst = 0;
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.width(); ++x) {
            const long a = image.bits == 8 ? image.pixels8(x, y) : image.pixels16(x, y);
            const long b = image.bits == 8 ? back.pixels8(x, y) : back.pixels16(x, y);
            worst = std::max(worst, std::labs(a - b));
        }
    kxio::writeImage(out, back);
    std::cout << "maximum difference: " << worst << " grey level" << (worst == 1 ? "" : "s") << "\n";
    return 0;
}

}  // namespace kxcli
