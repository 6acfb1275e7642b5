// The filter command: one filter applied to one image or a batch.
#include "colour.h"
#include "commands.h"
#include "large_images.h"

#include <kx/core/exception.h>
#include <kx/freqfilt.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

namespace kxcli {

const CommandTable kFilterCommand{
    "filter",
    "filter IN... -o OUT_OR_DIR FILTER [options]",
    "Filters each image in the frequency domain and writes the result with the\n"
    "input's bit depth, in the format -o names. With several inputs OUT_OR_DIR\n"
    "must be a directory (existing, or ending in /; made if missing) and each\n"
    "result keeps its input's file name; inputs whose results would collide are\n"
    "refused before any work. One line per finished image is printed.\n"
    "\n"
    "FILTER is exactly one of --gabor, --gabor-reject, --band-pass, --band-reject,\n"
    "--load FILE, --transfer GAIN or --remove-texture. Frequencies are in cycles\n"
    "per pixel (0 to 0.5); a pattern with a period of P pixels has frequency 1/P.\n"
    "\n"
    "Angles: 0 degrees is a pattern whose brightness varies along x (vertical\n"
    "stripes); 90 degrees varies along y (horizontal stripes); positive angles\n"
    "turn from +x towards +y, that is clockwise on the screen, where y grows\n"
    "downwards. The angle is the direction of the peak from the middle of the\n"
    "'kxfreq spectrum' picture.\n"
    "\n"
    "Images of any size are filtered: one larger than a transform (2048 pixels\n"
    "in a side) is cut into overlapping tiles whose seams do not show, and is\n"
    "read and written row by row (colour channel by channel, through temporary\n"
    "files), in memory that does not grow with its height; a region, and colour\n"
    "with --color luminance or --remove-texture, are held in memory.",
    {
        {"--out", "-o", "PATH", "output file, or directory for a batch"},
        {"--gabor", nullptr, nullptr,
         "oriented band-pass: keeps a lobe at --frequency in\n"
         "direction --angle (results are doubled, so that\n"
         "--output real gives the pattern and magnitude its\n"
         "envelope)"},
        {"--gabor-reject", nullptr, nullptr,
         "removes an oriented periodic pattern: rejects the\n"
         "lobe at --angle and its mirror at --angle + 180"},
        {"--band-pass", nullptr, nullptr, "keeps a ring at radius --frequency"},
        {"--band-reject", nullptr, nullptr, "removes that ring, keeps the rest"},
        {"--load", nullptr, "FILE", "a filter stored with --save"},
        {"--transfer", nullptr, "GAIN",
         "a gain image (.png, .tif or .pgm) of the padded size,\n"
         "zero frequency in the middle: 0 rejects, full scale\n"
         "passes"},
        {"--remove-texture", nullptr, nullptr,
         "finds each image's periodic components (as 'kxfreq\n"
         "peaks' lists them) and removes them with their\n"
         "harmonics, up to the image's borders; takes only\n"
         "--max, --region, --color, --quality, --tile,\n"
         "--margin, --jobs and --json (colour images: found\n"
         "on the luminance, removed from every channel)"},
        kMaxComponentsOption,
        {"--frequency", nullptr, "F", "lobe or ring position in cycles per pixel\n(default 0.1)"},
        {"--period", nullptr, "P", "the same as a period in pixels: --frequency 1/P"},
        {"--sigma", nullptr, "S[,S2]",
         "Gaussian width in cycles per pixel; Gabor filters\n"
         "take along,across (default 0.01)"},
        {"--plateau", nullptr, "P[,P2]", "half-width of the flat top (default 0)"},
        {"--angle", nullptr, "DEG", "direction of the Gabor lobe in degrees (default 0)"},
        {"--dc-radius", nullptr, "R",
         "pass filters clear, reject filters keep, the\n"
         "(2R-1) x (2R-1) frequencies around zero (default 0)"},
        {"--output", nullptr, "MODE",
         "real (default): the filtered image, rounded and\n"
         "clamped; signed: the same plus mid-grey (128 or\n"
         "32768), for band-pass and Gabor results; magnitude:\n"
         "the modulus"},
        kPadOption,
        kRegionOption,
        kColourOption,
        {"--quality", nullptr, "Q", "JPEG quality of .jpg/.jpeg outputs, 1 to 100\n(default 95)"},
        {"--save", nullptr, "FILE", "store the filter used (for the first image's size)"},
        {"--scale", nullptr, nullptr,
         "stretch each result to the full grey range (signed:\n"
         "keeping zero at mid-grey)"},
        {"--tile", nullptr, "N",
         "images larger than one transform (or than N) are\n"
         "filtered in overlapping N x N tiles: a power of two\n"
         "from 64 to 2048 (default 2048)"},
        {"--margin", nullptr, "M",
         "pixels each tile reads beyond the part it writes\n"
         "(default: from the filter's kernel)"},
        {"--jobs", nullptr, "N",
         "process N images at once; one image larger than a\n"
         "tile is spread over N threads (default 1)"},
        {"--json", nullptr, "FILE",
         "write a report of the run (per input: output, size,\n"
         "filter, time, status, tile, margin and tiles; with\n"
         "--remove-texture the components removed)"},
    },
    nullptr};

namespace {

namespace fs = std::filesystem;

enum class Kind { Gabor, GaborReject, BandPass, BandReject, Loaded, Transfer, RemoveTexture };

// Each kind and its name: its option is "--" and the name.
const std::pair<Kind, const char*> kKinds[] = {
    {Kind::Gabor, "gabor"},
    {Kind::GaborReject, "gabor-reject"},
    {Kind::BandPass, "band-pass"},
    {Kind::BandReject, "band-reject"},
    {Kind::Loaded, "load"},
    {Kind::Transfer, "transfer"},
    {Kind::RemoveTexture, "remove-texture"},
};

std::string kindName(Kind kind)
{
    for (const auto& [k, name] : kKinds)
        if (k == kind)
            return name;
    return "";
}

struct FilterChoice {
    Kind kind = Kind::Gabor;
    std::pair<double, double> sigma, plateau;
    double angleDegrees = 0, frequency = 0.1;
    long dcRadius = 0;
    long maxComponents = 8;   // --remove-texture
    bool periodGiven = false;
    std::string source;   // --load or --transfer file
    std::shared_ptr<const kxFrequencyFilter> loaded;
    kxio::GreyImage gain;   // --transfer
};

std::unique_ptr<kxFrequencyFilter> constructFilter(const FilterChoice& choice, const kxPair<long>& size)
{
    const kxPair<double> sigma(choice.sigma.first, choice.sigma.second);
    const kxPair<double> plateau(choice.plateau.first, choice.plateau.second);
    const kxRadian angle(choice.angleDegrees * 3.141592653589793 / 180.0);
    switch (choice.kind) {
    case Kind::Gabor:
        return std::make_unique<kxFrequencyFilterGabor>(sigma, plateau, angle, choice.frequency, size,
                                                        choice.dcRadius);
    case Kind::GaborReject:
        return std::make_unique<kxFrequencyFilterGaborReject>(sigma, plateau, angle, choice.frequency, size,
                                                              choice.dcRadius);
    case Kind::BandPass:
        return std::make_unique<kxFrequencyFilterBandPass>(sigma.x(), plateau.x(), choice.frequency, size,
                                                           choice.dcRadius);
    case Kind::BandReject:
        return std::make_unique<kxFrequencyFilterBandReject>(sigma.x(), plateau.x(), choice.frequency, size,
                                                             choice.dcRadius);
    case Kind::Loaded:
    case Kind::Transfer:
    case Kind::RemoveTexture:
        break;
    }
    return std::unique_ptr<kxFrequencyFilter>(choice.loaded->clone());
}

// The option a refused set of parameters is about: each parameter is tried
// alone, the others at values the library accepts; the first refused names
// its option. Empty when none is refused alone.
std::string faultyOption(const FilterChoice& choice, const kxPair<long>& size)
{
    FilterChoice valid;
    valid.kind = choice.kind;
    valid.sigma = {0.01, 0.01};
    valid.plateau = {0, 0};
    const std::pair<std::string, std::function<void(FilterChoice&)>> trials[] = {
        {choice.periodGiven ? "--period" : "--frequency", [&](FilterChoice& c) { c.frequency = choice.frequency; }},
        {"--sigma", [&](FilterChoice& c) { c.sigma = choice.sigma; }},
        {"--plateau", [&](FilterChoice& c) { c.plateau = choice.plateau; }},
        {"--dc-radius", [&](FilterChoice& c) { c.dcRadius = choice.dcRadius; }},
        {"--sigma/--plateau",
         [&](FilterChoice& c) {
             c.sigma = choice.sigma;
             c.plateau = choice.plateau;
         }},
    };
    for (const auto& [option, set] : trials) {
        FilterChoice trial = valid;
        set(trial);
        try {
            constructFilter(trial, size);
        } catch (const kxFrequencyDefs::Errors&) {
            return option;
        }
    }
    return "";
}

// The filter of the choice for a spectrum of `size`; a refused parameter is
// a usage error naming its option.
std::unique_ptr<kxFrequencyFilter> makeFilter(const FilterChoice& choice, const kxPair<long>& size)
{
    try {
        return constructFilter(choice, size);
    } catch (const kxFrequencyDefs::InvalidArgument& e) {
        const std::string option = faultyOption(choice, size);
        if (option.empty())
            throw;
        throw UsageError(option + ": " + e.what());
    }
}

std::shared_ptr<const kxFrequencyFilter> loadFilter(const std::string& path)
{
    std::error_code ec;
    if (fs::is_directory(path, ec))
        optionError("--load", path + ": is a directory, not a filter file");
    std::ifstream in(path, std::ios::binary);
    if (!in)
        optionError("--load", path + ": cannot open filter file");
    try {
        kxStreamArchive archive(in);
        std::shared_ptr<kxFrequencyFilter> filter = archive.loadObjectAs<kxFrequencyFilter>();
        if (!filter || !filter->isInitialized())
            optionError("--load", path + ": the file holds no initialised filter");
        return filter;
    } catch (const kxException& e) {
        optionError("--load", path + ": not a valid filter file: " + e.what());
    }
}

void saveFilter(const std::string& path, const kxFrequencyFilter& filter)
{
    std::ostringstream out(std::ios::binary);
    {
        kxStreamArchive archive(out);
        archive.storeObject(&filter);
    }
    const std::string text = out.str();
    try {
        kxio::writeFileAtomically(path, std::vector<unsigned char>(text.begin(), text.end()));
    } catch (const kxio::ImageError& e) {
        throw CommandError(std::string("--save: ") + e.what());
    }
}

// The gain of a filter on every element of a buffer of the given size.
kxFrequencyBuffer gainOf(const kxFrequencyFilter& filter, long width, long height)
{
    kxFrequencyBuffer ones(width, height);
    for (long y = 0; y < height; ++y)
        for (long x = 0; x < width; ++x)
            ones.put(x, y, kxPair<double>(1.0, 0.0), false);
    filter.apply(ones);
    return ones;
}

// A one-lobe reject filter made into one that removes a real pattern: its
// gain times the same gain at the mirrored frequency (-u, -v).
kxFrequencyFilterImage twoLobeReject(const kxFrequencyFilter& oneLobe, long width, long height)
{
    const kxFrequencyBuffer one = gainOf(oneLobe, width, height);
    kxFrequencyBuffer both(width, height);
    for (long y = 0; y < height; ++y)
        for (long x = 0; x < width; ++x) {
            const double g = one.getReal(x, y, false) * one.getReal((width - x) % width, (height - y) % height, false);
            both.put(x, y, kxPair<double>(g, 0.0), false);
        }
    return kxFrequencyFilterImage(both);
}

// A --transfer image as a filter for a spectrum of the given padded size.
kxFrequencyFilterImage transferFilter(const FilterChoice& choice, long width, long height, const std::string& in)
{
    const kxio::GreyImage& gain = choice.gain;
    if (gain.width() != width || gain.height() != height)
        throw CommandError(in + ": --transfer: " + choice.source + " is " + std::to_string(gain.width()) + " x " +
                           std::to_string(gain.height()) + " but this image's spectrum is " + std::to_string(width) +
                           " x " + std::to_string(height));
    const double full = gain.bits == 8 ? 255.0 : 65535.0;
    kxFrequencyBuffer transfer(width, height);
    for (long y = 0; y < height; ++y)
        for (long x = 0; x < width; ++x) {
            const double g = (gain.bits == 8 ? gain.pixels8(x, y) : gain.pixels16(x, y)) / full;
            transfer.put(x - width / 2, y - height / 2, kxPair<double>(g, 0.0), true);
        }
    return kxFrequencyFilterImage(transfer);
}

struct Settings {
    FilterChoice choice;
    kxTileOptions tiling;   // tile, margin and jobs for large images
    OutputMode mode = OutputMode::Real;
    Padding padding = Padding::Mirror;
    kxio::Region region;
    bool scale = false;
    ColourMode colour = ColourMode::PerChannel;
    bool colourGiven = false;
    kxio::WriteOptions write;
};

struct Outcome {
    long width = 0, height = 0;
    double seconds = 0;
    std::string error;
    std::vector<kxPeriodicComponent> removed;   // --remove-texture
    bool tiled = false;                          // filtered in tiles
    kxTileReport report;
};

// --remove-texture on a grey image: the library finds, removes and reports
// the components, padding the image itself.
kxio::GreyImage removeTexture(const kxio::GreyImage& image, const FilterChoice& choice,
                              std::vector<kxPeriodicComponent>& removed)
{
    kxTextureRemovalOptions options;
    options.search.maxComponents = choice.maxComponents;
    if (image.bits == 8)
        return kxio::makeImage8(kfRemovePeriodicTexture<unsigned char>(image.pixels8, options, &removed));
    return kxio::makeImage16(kfRemovePeriodicTexture<unsigned short>(image.pixels16, options, &removed));
}

// The complex result of the chosen (linear) filter on one plane of pixels.
template <typename Plane>
Complex filterPlane(const Plane& plane, long width, long height, const Settings& settings, const std::string& in)
{
    const FilterChoice& choice = settings.choice;
    kxFrequencyBuffer spectrum;
    forward(plane, settings.padding, spectrum);
    const long pw = spectrum.width(), ph = spectrum.height();
    double factor = 1;
    try {
        if (choice.kind == Kind::Transfer) {
            transferFilter(choice, pw, ph, in).apply(spectrum);
        } else {
            // Sized from the spectrum the image gave.
            const std::unique_ptr<kxFrequencyFilter> filter = makeFilter(choice, kxPair<long>(pw, ph));
            if (dynamic_cast<const kxFrequencyFilterGaborReject*>(filter.get())) {
                twoLobeReject(*filter, pw, ph).apply(spectrum);
            } else {
                filter->apply(spectrum);
                if (dynamic_cast<const kxFrequencyFilterGabor*>(filter.get()))
                    factor = 2;   // one lobe of a real pattern carries half of it
            }
        }
    } catch (const kxFrequencyDefs::InvalidSize& e) {
        throw CommandError(in + ": the filter does not fit this image (" + e.what() + "); its spectrum is " +
                           std::to_string(pw) + " x " + std::to_string(ph));
    }
    Complex result = inverseComplex(spectrum, width, height);
    if (factor != 1)
        for (long y = 0; y < height; ++y)
            for (long x = 0; x < width; ++x) {
                result.real(x, y) *= factor;
                result.imag(x, y) *= factor;
            }
    return result;
}

kxio::GreyImage filterGrey(const kxio::GreyImage& plane, const Settings& settings, const std::string& in)
{
    return toPixels(filterPlane(plane, plane.width(), plane.height(), settings, in), plane.bits, settings.mode,
                    settings.scale);
}

// --remove-texture on a colour image: the components are found on the
// luminance and the same reject filter removes them from every colour
// channel (mirror padded, as the filters are).
kxio::Image removeColourTexture(const kxio::Image& image, const FilterChoice& choice,
                                std::vector<kxPeriodicComponent>& removed)
{
    kxPeriodicSearchOptions search;
    search.maxComponents = choice.maxComponents;
    removed = kfFindPeriodicComponents<double>(luminanceOf(image), search);
    if (removed.empty())
        return image;
    const kxFrequencyBuffer sized(image.width(), image.height());   // the library's padded size
    const kxFrequencyFilterImage reject =
        kfPeriodicRejectFilter(removed, kxPair<long>(sized.width(), sized.height()));
    return eachColourPlane(image, [&](const kxio::GreyImage& plane) {
        kxFrequencyBuffer spectrum;
        forward(plane, Padding::Mirror, spectrum);
        reject.apply(spectrum);
        return toPixels(inverseComplex(spectrum, plane.width(), plane.height()), plane.bits, OutputMode::Real, false);
    });
}

// How an input is read: with its channels unless grey is asked for or the
// output cannot hold colour.
kxio::Channels channelsFor(const Settings& settings, const std::string& out)
{
    return settings.colour == ColourMode::Grey || !kxio::holdsColour(kxio::formatFor(out)) ? kxio::Channels::Grey
                                                                                          : kxio::Channels::Keep;
}

kxio::Image filterImage(const kxio::Image& image, const Settings& settings, const std::string& in,
                        Outcome& outcome)
{
    const FilterChoice& choice = settings.choice;
    if (choice.kind == Kind::RemoveTexture) {
        if (image.colour())
            return removeColourTexture(image, choice, outcome.removed);
        return eachColourPlane(image, [&](const kxio::GreyImage& plane) {
            return removeTexture(plane, choice, outcome.removed);
        });
    }
    if (image.colour() && settings.colour == ColourMode::Luminance) {
        const kxPelBuffer<double> before = luminanceOf(image);
        const Complex after = filterPlane(before, image.width(), image.height(), settings, in);
        return addLuminanceChange(image, before, after.real);
    }
    return eachColourPlane(image, [&](const kxio::GreyImage& plane) { return filterGrey(plane, settings, in); });
}

// The choice as a filter description without a size, for tiles.
std::unique_ptr<kxFilterDescription> describe(const FilterChoice& c)
{
    const double angle = c.angleDegrees * 3.141592653589793 / 180.0;
    const kxPair<double> sigma(c.sigma.first, c.sigma.second), plateau(c.plateau.first, c.plateau.second);
    auto gaborLike = [&](auto d) {
        d->sigma = sigma, d->plateau = plateau, d->angle = angle, d->frequency = c.frequency, d->dcRadius = c.dcRadius;
    };
    auto radial = [&](auto d) {
        d->sigma = sigma.x(), d->plateau = plateau.x(), d->frequency = c.frequency, d->dcRadius = c.dcRadius;
    };
    switch (c.kind) {
    case Kind::Gabor: {
        auto d = std::make_unique<kxGaborDescription>();
        gaborLike(d.get());
        return d;
    }
    case Kind::GaborReject: {
        auto d = std::make_unique<kxGaborRejectDescription>();
        gaborLike(d.get());
        return d;
    }
    case Kind::BandPass: {
        auto d = std::make_unique<kxBandPassDescription>();
        radial(d.get());
        return d;
    }
    case Kind::BandReject: {
        auto d = std::make_unique<kxBandRejectDescription>();
        radial(d.get());
        return d;
    }
    case Kind::Loaded:
    case Kind::Transfer:
    case Kind::RemoveTexture:
        break;
    }
    return nullptr;   // sized filters cannot be tiled; texture removal builds its own
}

kxTileOptions::Output tiledOutput(OutputMode mode)
{
    if (mode == OutputMode::Signed)
        return kxTileOptions::eSigned;
    return mode == OutputMode::Magnitude ? kxTileOptions::eMagnitude : kxTileOptions::eReal;
}

// Whether an image of this header (or the region of it) is larger than one
// tile.
bool needsTiles(const kxio::ImageInfo& info, const Settings& settings)
{
    const long w = settings.region.whole() ? info.width : settings.region.width;
    const long h = settings.region.whole() ? info.height : settings.region.height;
    return kfPaddedSize(w) > settings.tiling.tile || kfPaddedSize(h) > settings.tiling.tile;
}

// The notches for the periodic components of a large grey file, found on its
// Welch spectrum (a first pass over the file).
kxPeriodicRejectDescription texturesOf(const kxFrequencyBuffer& welch, const FilterChoice& choice,
                                       std::vector<kxPeriodicComponent>& removed)
{
    kxPeriodicSearchOptions search;
    search.maxComponents = choice.maxComponents;
    kxPeriodicRejectDescription notches;
    notches.components = kfFindPeriodicComponents(welch, search);
    removed = notches.components;
    return notches;
}

// A large image filtered in tiles. A grey image read whole is streamed from
// its file to the output row by row; a colour image or a region is read into
// memory and each plane tiled.
void filterLarge(const std::string& in, const std::string& out, const kxio::ImageInfo& info,
                 const Settings& settings, Outcome& outcome)
{
    const FilterChoice& choice = settings.choice;
    if (choice.kind == Kind::Loaded || choice.kind == Kind::Transfer)
        throw CommandError(in + ": a filter of one fixed size (--" + kindName(choice.kind) +
                           ") cannot be cut into tiles, and this image is " + std::to_string(info.width) + " x " +
                           std::to_string(info.height) + "; give the filter by its parameters, or use --region");
    if (settings.padding == Padding::Zero)
        throw CommandError(in + ": --pad zero needs the image in one transform; tiles are mirrored at the borders");
    if (settings.scale)
        throw CommandError(in + ": --scale needs the image in one transform (at most " +
                           std::to_string(settings.tiling.tile) + " in a side)");
    outcome.tiled = true;
    kxTileOptions tiling = settings.tiling;
    tiling.output = tiledOutput(settings.mode);
    ProgressBar bar(in);
    tiling.progress = [&](long done, long total) { bar.update(done, total); };
    const std::unique_ptr<kxFilterDescription> description = describe(choice);
    const kxio::Channels channels = channelsFor(settings, out);
    try {
        if ((channels == kxio::Channels::Grey || info.channels == 1) && settings.region.whole()) {
            outcome.width = info.width;
            outcome.height = info.height;
            std::unique_ptr<kxFilterDescription> notches;
            if (choice.kind == Kind::RemoveTexture) {
                FileRowSource first(in);
                kxWelchOptions welch;
                welch.jobs = tiling.jobs;
                notches = std::make_unique<kxPeriodicRejectDescription>(
                    texturesOf(kfWelchSpectrum(first, welch), choice, outcome.removed));
            }
            FileRowSource source(in, printNote);
            FileRowSink sink(out, kxio::ImageInfo{info.width, info.height, info.bits, kxio::formatFor(out), 1},
                             settings.write);
            outcome.report = kfFilterTiled(source, notches ? *notches : *description, sink,
                                           info.bits == 8 ? eSampleU8 : eSampleU16, tiling);
            sink.commit();
            return;
        }
        if (description && settings.region.whole() && settings.colour == ColourMode::PerChannel) {
            // Each channel streamed alone; alpha copied.
            outcome.width = info.width;
            outcome.height = info.height;
            outcome.report = filterChannelsStreamed(in, out, *description, tiling, settings.write);
            printNote(in + ": " + colourNote(info.channels, settings.colour, false));
            return;
        }
        kxio::ReadLimits limits;
        limits.maxSide = kxio::kMaxSide;
        const kxio::Image image = channels == kxio::Channels::Grey
                                      ? kxio::fromGrey(kxio::readImage(in, settings.region, limits))
                                      : kxio::readChannels(in, settings.region, limits);
        outcome.width = image.width();
        outcome.height = image.height();
        std::unique_ptr<kxFilterDescription> notches;
        if (choice.kind == Kind::RemoveTexture) {
            const kxPelBuffer<double> luminance = luminanceOf(image);
            kxWelchOptions welch;
            welch.jobs = tiling.jobs;
            notches = std::make_unique<kxPeriodicRejectDescription>(texturesOf(
                kf_WelchSpectrum(kxImageView<const double>(kfImageView<double>(luminance)), welch), choice,
                outcome.removed));
        }
        const kxFilterDescription& filter = notches ? *notches : *description;
        kxio::Image result;
        if (image.colour() && settings.colour == ColourMode::Luminance && !notches) {
            const kxPelBuffer<double> before = luminanceOf(image);
            kxPelBuffer<double> after(image.width(), image.height());
            outcome.report = kf_FilterTiled(kxImageView<const double>(kfImageView<double>(before)), filter,
                                            kfImageView<double>(after), tiling);
            result = addLuminanceChange(image, before, after);
        } else {
            result = eachColourPlane(image, [&](const kxio::GreyImage& plane) {
                return filterPlaneTiled(plane, filter, tiling, outcome.report);
            });
        }
        if (image.colour())
            printNote(in + ": " + colourNote(image.channels(), settings.colour, choice.kind == Kind::RemoveTexture));
        kxio::writeImage(out, result, kxio::formatFor(out), settings.write);
    } catch (const kxException& e) {
        throw CommandError(in + ": " + e.what());
    }
}

// Filters one image; `preread` is the image when it has been read already.
void filterOne(const std::string& in, const std::string& out, const Settings& settings, Outcome& outcome,
               std::unique_ptr<kxio::Image> preread)
{
    if (!preread) {
        const kxio::ImageInfo info = kxio::readInfo(in);
        if (needsTiles(info, settings))
            return filterLarge(in, out, info, settings, outcome);
    }
    const kxio::Image image =
        preread ? std::move(*preread) : readInputChannels(in, settings.region, channelsFor(settings, out));
    preread.reset();
    outcome.width = image.width();
    outcome.height = image.height();
    kxio::Image result;
    try {
        result = filterImage(image, settings, in, outcome);
    } catch (const kxException& e) {
        if (settings.choice.kind != Kind::RemoveTexture)
            throw;
        throw CommandError(in + ": " + e.what());
    }
    if (image.colour())
        printNote(in + ": " + colourNote(image.channels(), settings.colour, settings.choice.kind == Kind::RemoveTexture));
    kxio::writeImage(out, result, kxio::formatFor(out), settings.write);
}

std::string describeFilter(const Settings& settings)
{
    const FilterChoice& c = settings.choice;
    std::ostringstream out;
    out << "{\"kind\": " << jsonString(kindName(c.kind));
    if (c.kind == Kind::RemoveTexture) {
        out << ", \"max\": " << c.maxComponents;
    } else if (c.kind == Kind::Loaded || c.kind == Kind::Transfer) {
        out << ", \"file\": " << jsonString(c.source);
    } else {
        out << ", \"frequency\": " << jsonNumber(c.frequency);
        if (c.kind == Kind::Gabor || c.kind == Kind::GaborReject)
            out << ", \"sigma\": [" << jsonNumber(c.sigma.first) << ", " << jsonNumber(c.sigma.second)
                << "], \"plateau\": [" << jsonNumber(c.plateau.first) << ", " << jsonNumber(c.plateau.second)
                << "], \"angle\": " << jsonNumber(c.angleDegrees);
        else
            out << ", \"sigma\": " << jsonNumber(c.sigma.first) << ", \"plateau\": " << jsonNumber(c.plateau.first);
        out << ", \"dc_radius\": " << c.dcRadius;
    }
    if (c.kind != Kind::RemoveTexture) {   // which pads itself and writes the image
        const char* modes[] = {"real", "signed", "magnitude"};
        out << ", \"output\": \"" << modes[static_cast<int>(settings.mode)] << "\"";
        out << ", \"pad\": \"" << (settings.padding == Padding::Zero ? "zero" : "mirror") << "\"";
        out << ", \"scale\": " << (settings.scale ? "true" : "false");
    }
    out << ", \"color\": " << jsonString(colourModeName(settings.colour));
    if (!settings.region.whole())
        out << ", \"region\": [" << settings.region.x << ", " << settings.region.y << ", " << settings.region.width
            << ", " << settings.region.height << "]";
    out << "}";
    return out.str();
}

void writeReport(const std::string& path, const Settings& settings, const std::vector<std::string>& inputs,
                 const std::vector<std::string>& outputs, const std::vector<Outcome>& outcomes, double seconds)
{
    std::ostringstream out;
    const std::string filter = describeFilter(settings);
    std::size_t failed = 0;
    out << "{\n  \"inputs\": [\n";
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const Outcome& o = outcomes[i];
        failed += !o.error.empty();
        out << "    {\"input\": " << jsonString(inputs[i]) << ", \"output\": "
            << (o.error.empty() ? jsonString(outputs[i]) : "null") << ", \"width\": " << o.width
            << ", \"height\": " << o.height << ", \"filter\": " << filter << ", \"seconds\": " << jsonNumber(o.seconds)
            << ", \"status\": " << (o.error.empty() ? "\"ok\"" : "\"error\"");
        if (o.error.empty()) {
            // An image in one transform counts as one tile of its padded size.
            const long tile = o.tiled ? o.report.tile : std::max(kfPaddedSize(o.width), kfPaddedSize(o.height));
            out << ", \"tile\": " << tile << ", \"margin\": " << (o.tiled ? o.report.margin : 0)
                << ", \"tiles\": " << (o.tiled ? o.report.tiles : 1);
        }
        if (settings.choice.kind == Kind::RemoveTexture && o.error.empty())
            out << ", \"removed\": " << componentsJson(o.removed);
        if (!o.error.empty())
            out << ", \"error\": " << jsonString(o.error);
        out << "}" << (i + 1 < inputs.size() ? "," : "") << "\n";
    }
    out << "  ],\n  \"filtered\": " << inputs.size() - failed << ",\n  \"failed\": " << failed
        << ",\n  \"seconds\": " << jsonNumber(seconds) << "\n}\n";
    const std::string text = out.str();
    kxio::writeFileAtomically(path, std::vector<unsigned char>(text.begin(), text.end()));
}

// --tile, --margin and the threads one large image's tiles get. The
// library checks the tile and whether the margin leaves room in it; its
// message is given under the option at fault.
kxTileOptions tilingOption(const Options& options, long jobs)
{
    kxTileOptions tiling;
    tiling.tile = options.integer("--tile", kfMaxTileSide, 1, 1L << 30);
    tiling.jobs = static_cast<unsigned>(jobs);
    const kxBandRejectDescription any;   // the checks do not depend on the filter
    tiling.margin = 0;                   // the tile alone first
    try {
        kfTileMargin(any, eSampleU16, tiling);
    } catch (const kxFrequencyDefs::InvalidArgument& e) {
        optionError("--tile", e.what());
    }
    tiling.margin = options.integer("--margin", -1, 0, 1L << 30);
    try {
        kfTileMargin(any, eSampleU16, tiling);
    } catch (const kxFrequencyDefs::InvalidArgument& e) {
        optionError("--margin", e.what());
    }
    return tiling;
}

Kind chosenKind(const Options& options)
{
    int chosen = 0;
    Kind kind = Kind::Gabor;
    for (const auto& [k, name] : kKinds)
        if (options.has(std::string("--") + name)) {
            kind = k;
            ++chosen;
        }
    if (chosen != 1)
        throw UsageError("give exactly one filter: --gabor, --gabor-reject, --band-pass, --band-reject, --load FILE, "
                         "--transfer GAIN or --remove-texture");
    return kind;
}

// The parameters, refusing every option the chosen filter does not use.
FilterChoice parseFilter(const Options& options)
{
    FilterChoice choice;
    choice.kind = chosenKind(options);
    const std::string name = std::string("--") + kindName(choice.kind);
    if (choice.kind == Kind::RemoveTexture) {
        for (const char* option : {"--frequency", "--period", "--sigma", "--plateau", "--angle", "--dc-radius"})
            options.refuse(option, "not used with --remove-texture: the components are found in each image");
        options.refuse("--save", "not used with --remove-texture: each image gets its own filter");
        options.refuse("--pad", "not used with --remove-texture: it pads each image itself");
        options.refuse("--output", "not used with --remove-texture: the result is the image without its texture");
        options.refuse("--scale", "not used with --remove-texture: the result keeps the image's grey levels");
        choice.maxComponents = maxComponentsOption(options);
        return choice;
    }
    options.refuse("--max", "used only with --remove-texture");
    if (choice.kind == Kind::Loaded || choice.kind == Kind::Transfer) {
        for (const char* option : {"--frequency", "--period", "--sigma", "--plateau", "--angle", "--dc-radius"})
            options.refuse(option, "not used with " + name + ": the filter comes from the file");
        if (choice.kind == Kind::Transfer)
            options.refuse("--save", "not used with --transfer: the gain image is the filter");
        choice.source = options.value(name);
        return choice;
    }
    const bool gabor = choice.kind == Kind::Gabor || choice.kind == Kind::GaborReject;
    if (!gabor)
        options.refuse("--angle", "not used by " + name + ": a ring has no direction");
    if (options.has("--frequency") && options.has("--period"))
        optionError("--period", "give --frequency or --period, not both");
    bool second = false;
    choice.sigma = options.pair("--sigma", 0.01, &second);
    if (second && !gabor)
        optionError("--sigma", name + " takes one value (a ring has no along and across)");
    choice.plateau = options.pair("--plateau", 0.0, &second);
    if (second && !gabor)
        optionError("--plateau", name + " takes one value (a ring has no along and across)");
    choice.angleDegrees = options.number("--angle", 0.0);
    choice.frequency = options.number("--frequency", 0.1);
    if (options.has("--period")) {
        const double period = options.number("--period", 0);
        if (!(period > 0))
            optionError("--period", "must be positive (pixels per cycle), not '" + options.value("--period") + "'");
        choice.frequency = 1.0 / period;
        choice.periodGiven = true;
        if (choice.frequency > 0.5)
            optionError("--period", "must be at least 2 pixels (Frequency must be between 0.0 and 0.5.)");
    }
    choice.dcRadius = options.integer("--dc-radius", 0, -1000000000L, 1000000000L);
    return choice;
}

}  // namespace

int runFilter(const std::vector<std::string>& args)
{
    const Options options(kFilterCommand, args);
    const std::vector<std::string>& inputs = options.positional();
    if (inputs.empty())
        throw UsageError("filter needs at least one input image");
    const std::string output = outputOption(options);

    Settings settings;
    settings.choice = parseFilter(options);
    const std::string mode = options.choice("--output", {"real", "signed", "magnitude"}, "real");
    settings.mode = mode == "real" ? OutputMode::Real : mode == "signed" ? OutputMode::Signed : OutputMode::Magnitude;
    settings.padding = paddingOption(options, Padding::Mirror);
    settings.region = regionOption(options);
    settings.scale = options.has("--scale");
    settings.colour = colourOption(options);
    settings.colourGiven = options.has("--color");
    settings.write.jpegQuality = static_cast<int>(options.integer("--quality", 95, 1, 100));
    if (settings.colour == ColourMode::Luminance) {
        if (settings.mode != OutputMode::Real)
            optionError("--color", "luminance works with --output real only (the chroma is added back)");
        options.refuse("--scale", "not used with --color luminance (the chroma is added back unscaled)");
    }
    const long jobs = options.integer("--jobs", 1, 1, 256);
    settings.tiling = tilingOption(options, inputs.size() == 1 ? jobs : 1);
    const std::string json = options.value("--json");
    if (options.has("--json") && json.empty())
        optionError("--json", "needs a file name");

    // Outputs: a file for one input, a directory for several.
    std::error_code ec;
    const bool endsInSlash = output.back() == '/';
    const bool isDirectory = fs::is_directory(output, ec);
    const bool toDirectory = inputs.size() > 1 || isDirectory || endsInSlash;
    if (inputs.size() > 1 && !isDirectory && !endsInSlash)
        optionError("-o", "with several inputs, -o must be a directory (existing, or ending in /), not '" + output +
                              "'");
    if (toDirectory && fs::exists(output, ec) && !isDirectory)
        optionError("-o", "'" + output + "' exists and is not a directory");
    std::vector<std::string> outputs;
    std::map<std::string, std::string> claimed;   // output -> input
    for (const std::string& in : inputs) {
        const std::string out = toDirectory ? (fs::path(output) / fs::path(in).filename()).string() : output;
        const kxio::Format format = kxio::formatFor(out);
        if (settings.colourGiven && settings.colour != ColourMode::Grey && !kxio::holdsColour(format))
            optionError("--color", std::string(colourModeName(settings.colour)) +
                                       " needs an output that holds colour (" + out +
                                       " is PGM): use .png, .tif or .jpg, or --color grey");
        if (options.has("--quality") && format != kxio::Format::Jpeg)
            optionError("--quality", "used only for .jpg/.jpeg outputs, not " + out);
        if (fs::equivalent(in, out, ec))
            throw CommandError(out + ": the output would overwrite its input");
        const std::string key = fs::absolute(out, ec).lexically_normal().string();
        const auto [at, fresh] = claimed.emplace(key, in);
        if (!fresh)
            throw CommandError("outputs clash: " + at->second + " and " + in + " would both be written to " + out);
        outputs.push_back(out);
    }

    // The filter is checked (and saved) before any image is processed.
    if (settings.choice.kind == Kind::Loaded) {
        settings.choice.loaded = loadFilter(settings.choice.source);
    } else if (settings.choice.kind == Kind::Transfer) {
        try {
            settings.choice.gain =
                kxio::readImage(settings.choice.source, kxio::Region{}, kxio::ReadLimits{}, printNote);
        } catch (const kxio::ImageError& e) {
            optionError("--transfer", e.what());
        }
    } else if (settings.choice.kind != Kind::RemoveTexture) {
        makeFilter(settings.choice, kxPair<long>(1, 1));   // validates the parameters
    }
    // The filter is stored for the first image's size: that image is read
    // now (and only now), and handed to its worker.
    std::unique_ptr<kxio::Image> first;
    if (options.has("--save")) {
        first = std::make_unique<kxio::Image>(
            readInputChannels(inputs[0], settings.region, channelsFor(settings, outputs[0])));
        const kxFrequencyBuffer sized(first->width(), first->height());   // the library's padded size
        saveFilter(options.value("--save"), *makeFilter(settings.choice, kxPair<long>(sized.width(), sized.height())));
    }
    if (toDirectory)
        fs::create_directories(output);

    const auto start = std::chrono::steady_clock::now();
    std::vector<Outcome> outcomes(inputs.size());
    std::atomic<std::size_t> next{0};
    auto worker = [&] {
        for (std::size_t i; (i = next++) < inputs.size();) {
            const auto begun = std::chrono::steady_clock::now();
            Outcome& outcome = outcomes[i];
            try {
                filterOne(inputs[i], outputs[i], settings, outcome, i == 0 ? std::move(first) : nullptr);
            } catch (const std::exception& e) {
                outcome.error = e.what();
            }
            outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
            if (outcome.error.empty() && settings.choice.kind == Kind::RemoveTexture)
                printLine(std::cout, outputs[i] + " (" + formatSeconds(outcome.seconds) + ", " +
                                         std::to_string(outcome.removed.size()) + " periodic component" +
                                         (outcome.removed.size() == 1 ? "" : "s") + " removed)");
            else if (outcome.error.empty())
                printLine(std::cout, outputs[i] + " (" + formatSeconds(outcome.seconds) + ")");
            else
                printLine(std::cerr, "kxfreq: error: " + outcome.error);
        }
    };
    std::vector<std::thread> threads;
    for (long t = 1; t < std::min<long>(jobs, static_cast<long>(inputs.size())); ++t)
        threads.emplace_back(worker);
    worker();
    for (std::thread& t : threads)
        t.join();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    std::size_t failed = 0;
    for (const Outcome& o : outcomes)
        failed += !o.error.empty();
    if (options.has("--json"))
        writeReport(json, settings, inputs, outputs, outcomes, seconds);
    if (inputs.size() > 1)   // a single image's failure is its one error line
        std::cerr << "filtered " << inputs.size() - failed << " of " << inputs.size() << " images in "
                  << formatSeconds(seconds)
                  << (failed ? ", " + std::to_string(failed) + " failed" : std::string()) << "\n";
    return failed ? 1 : 0;
}

}  // namespace kxcli
