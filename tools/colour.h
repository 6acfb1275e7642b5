#pragma once
// Colour images in the tool: how a command treats them (--color) and the
// luminance they are searched or filtered on.
#include "image_io.h"
#include "options.h"

#include <functional>
#include <string>

namespace kxcli {

// per-channel: each colour channel filtered alone, alpha copied; luminance:
// the luminance filtered and the change added to every colour channel, so
// that the chroma (each channel minus the luminance) is kept; grey: the
// image read as grey.
enum class ColourMode { PerChannel, Luminance, Grey };

extern const OptionEntry kColourOption;
// --color, per-channel when absent.
ColourMode colourOption(const Options& options);
const char* colourModeName(ColourMode mode);

// The luminance of an image's colour planes, 0.2126 R + 0.7152 G + 0.0722 B,
// unrounded; the only plane of a grey image.
kxPelBuffer<double> luminanceOf(const kxio::Image& image);

// A plane computed from another, as a GreyImage of the same depth.
using PlaneFilter = std::function<kxio::GreyImage(const kxio::GreyImage&)>;
// Every colour plane through `filter`; alpha copied as it is.
kxio::Image eachColourPlane(const kxio::Image& image, const PlaneFilter& filter);

// The image with `after - before` (a changed luminance) added to each colour
// plane, rounded and clamped; alpha copied.
kxio::Image addLuminanceChange(const kxio::Image& image, const kxPelBuffer<double>& before,
                               const kxPelBuffer<double>& after);

// What was done to a colour image, for the note: "each of its 3 channels
// filtered alone, alpha kept" and the like.
// `channels` counts alpha (1 to 4, as kxio::Image numbers them).
std::string colourNote(int channels, ColourMode mode, bool textureRemoval);

}  // namespace kxcli
