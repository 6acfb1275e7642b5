#include "colour.h"

#include <algorithm>
#include <cmath>

namespace kxcli {

const OptionEntry kColourOption{"--color", nullptr, "MODE",
                                "colour images: per-channel (default; each channel\n"
                                "alone, alpha kept), luminance (the luminance only,\n"
                                "chroma kept) or grey (converted to grey first)"};

ColourMode colourOption(const Options& options)
{
    const std::string mode = options.choice("--color", {"per-channel", "luminance", "grey"}, "per-channel");
    return mode == "luminance" ? ColourMode::Luminance : mode == "grey" ? ColourMode::Grey : ColourMode::PerChannel;
}

const char* colourModeName(ColourMode mode)
{
    switch (mode) {
    case ColourMode::Luminance:
        return "luminance";
    case ColourMode::Grey:
        return "grey";
    case ColourMode::PerChannel:
        break;
    }
    return "per-channel";
}

namespace {

double sample(const kxio::GreyImage& plane, long x, long y)
{
    return plane.bits == 8 ? plane.pixels8(x, y) : plane.pixels16(x, y);
}

}  // namespace

kxPelBuffer<double> luminanceOf(const kxio::Image& image)
{
    const long w = image.width(), h = image.height();
    kxPelBuffer<double> out(w, h);
    const std::vector<kxio::GreyImage>& p = image.planes;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            out(x, y) = image.colour()
                            ? 0.2126 * sample(p[0], x, y) + 0.7152 * sample(p[1], x, y) + 0.0722 * sample(p[2], x, y)
                            : sample(p[0], x, y);
    return out;
}

kxio::Image eachColourPlane(const kxio::Image& image, const PlaneFilter& filter)
{
    kxio::Image out = image;
    for (int c = 0; c < image.colourPlanes(); ++c)
        out.planes[static_cast<std::size_t>(c)] = filter(image.planes[static_cast<std::size_t>(c)]);
    return out;
}

kxio::Image addLuminanceChange(const kxio::Image& image, const kxPelBuffer<double>& before,
                               const kxPelBuffer<double>& after)
{
    return eachColourPlane(image, [&](const kxio::GreyImage& plane) {
        return kxio::roundedImage(plane.bits, plane.width(), plane.height(), [&](long x, long y) {
            return sample(plane, x, y) + (after(x, y) - before(x, y));
        });
    });
}

std::string colourNote(int channels, ColourMode mode, bool textureRemoval)
{
    kxio::Image shape;
    shape.planes.resize(static_cast<std::size_t>(channels));
    const std::string alpha = shape.hasAlpha() ? ", alpha kept" : "";
    const std::string colour = std::to_string(shape.colourPlanes()) + " channels";
    if (textureRemoval)
        return "colour image: periodic components found on its luminance and removed from each of its " + colour +
               alpha;
    if (mode == ColourMode::Luminance)
        return "colour image: its luminance filtered, chroma kept" + alpha;
    return "colour image: each of its " + colour + " filtered alone" + alpha;
}

}  // namespace kxcli
