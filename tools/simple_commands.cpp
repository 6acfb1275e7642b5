// The spectrum and roundtrip commands.
#include "commands.h"
#include "options.h"

#include <cstdlib>
#include <iostream>

namespace kxcli {

const char* const kSpectrumHelp =
    "Usage: kxfreq spectrum IN -o OUT [options]\n"
    "\n"
    "Writes an 8-bit picture of one component of IN's spectrum.\n"
    "\n"
    "Options:\n"
    "  -o, --output OUT       the picture to write (.png or .pgm)\n"
    "  --part PART            magnitude (default), phase, real or imaginary\n"
    "  --map MAP              clip, linear, range, log or phase; by default log for\n"
    "                         the magnitude, phase for the phase, linear otherwise\n"
    "  --low L --high H       the values that map to 0 and 255 with --map range\n"
    "  --centered             zero frequency in the middle (default)\n"
    "  --uncentered           zero frequency at the top-left corner\n";

const char* const kRoundtripHelp =
    "Usage: kxfreq roundtrip IN -o OUT\n"
    "\n"
    "Transforms IN forward and back, writes the result with IN's bit depth and\n"
    "prints the largest pixel difference.\n"
    "\n"
    "Options:\n"
    "  -o, --output OUT       the image to write (.png or .pgm)\n";

namespace {

std::string singleInput(const Options& options, const char* command)
{
    if (options.positional().size() != 1)
        throw UsageError(std::string(command) + " takes exactly one input image");
    return options.positional()[0];
}

std::string outputOf(const Options& options)
{
    const std::string out = options.has("-o") ? options.value("-o") : options.value("--output");
    if (out.empty())
        throw UsageError("an output file is needed (-o OUT)");
    return out;
}

kxFrequencyDefs::FrequencyMapping mappingNamed(const std::string& name)
{
    if (name == "clip")
        return kxFrequencyDefs::eMapClip;
    if (name == "linear")
        return kxFrequencyDefs::eMapLinear;
    if (name == "range")
        return kxFrequencyDefs::eMapLinearRange;
    if (name == "log")
        return kxFrequencyDefs::eMapLog;
    if (name == "phase")
        return kxFrequencyDefs::eMapPhase;
    throw UsageError("unknown mapping '" + name + "' (clip, linear, range, log or phase)");
}

}  // namespace

int runSpectrum(const std::vector<std::string>& args)
{
    const Options options(args, {"-o", "--output", "--part", "--map", "--low", "--high"}, {"--centered", "--uncentered"});
    const std::string in = singleInput(options, "spectrum");
    const std::string out = outputOf(options);
    kxio::formatFor(out);   // refuse an unknown output format before any work
    const std::string part = options.value("--part", "magnitude");
    std::string defaultMap = part == "magnitude" ? "log" : part == "phase" ? "phase" : "linear";
    const auto mapping = mappingNamed(options.value("--map", defaultMap));
    if (options.has("--centered") && options.has("--uncentered"))
        throw UsageError("--centered and --uncentered exclude each other");
    const bool centered = !options.has("--uncentered");
    if (mapping == kxFrequencyDefs::eMapLinearRange && !(options.has("--low") && options.has("--high")))
        throw UsageError("--map range needs --low and --high");

    kxFrequencyBuffer spectrum;
    forward(readInput(in), spectrum);
    kxPelBuffer<double> component;
    if (part == "magnitude")
        component = spectrum.getMagnitudeImage(centered);
    else if (part == "phase")
        component = spectrum.getPhaseImage(centered);
    else if (part == "real")
        component = spectrum.getRealImage(centered);
    else if (part == "imaginary")
        component = spectrum.getImaginaryImage(centered);
    else
        throw UsageError("unknown part '" + part + "' (magnitude, phase, real or imaginary)");
    const kxPelBuffer<unsigned char> picture =
        kfFrequencyMapImage(component, mapping, options.number("--low", 0), options.number("--high", 0));
    kxio::writeImage(out, kxio::makeImage8(picture));
    std::cout << out << "\n";
    return 0;
}

int runRoundtrip(const std::vector<std::string>& args)
{
    const Options options(args, {"-o", "--output"}, {});
    const std::string in = singleInput(options, "roundtrip");
    const std::string out = outputOf(options);
    kxio::formatFor(out);
    const kxio::GreyImage image = readInput(in);
    kxFrequencyBuffer spectrum;
    forward(image, spectrum);
    const kxio::GreyImage back = inverse(spectrum, image.bits, false);
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
