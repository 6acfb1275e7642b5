#pragma once
// Pictures of spectra for people to read: the spectrum's grey levels, on
// request in a frame with frequency axes, shown in grey or through a colour
// map.
#include "colormap.h"

#include <kx/core/pel_buffer.h>

#include <string>
#include <vector>

namespace kxcli {

struct PictureRect {
    long x = 0, y = 0, width = 0, height = 0;
};

// A picture in grey levels. The pixels inside `mapped` are data, shown
// through the colour map; the rest (frames, labels, other panels) stays
// grey.
struct Picture {
    kxPelBuffer<unsigned char> levels;
    std::vector<PictureRect> mapped;
};

// The frequencies along one side of a spectrum picture: pixel i shows
// first + i x perPixel cycles per pixel.
struct FrequencyScale {
    double first = 0.0;
    double perPixel = 0.0;
};
// The scale of a centred spectrum picture of a padded side: the zero
// frequency at pixel side / 2.
FrequencyScale centredScale(long side);

// The spectrum picture alone, all of it data.
Picture plainPicture(const kxPelBuffer<unsigned char>& spectrum);

// The spectrum picture in a frame with ticks along its bottom (u) and left
// (v) sides, each labelled with its frequency in cycles per pixel and, in
// parentheses, the period in pixels, and a title saying so. Font pixels are
// textScale x textScale (1 or more).
Picture withAxes(const kxPelBuffer<unsigned char>& spectrum, const FrequencyScale& u, const FrequencyScale& v,
                 int textScale);
// Where withAxes puts the spectrum, for a picture of that size.
PictureRect axesPlotArea(long width, long height, const FrequencyScale& u, const FrequencyScale& v, int textScale);

// The text scale that suits a picture of this size: 2 from 768 pixels a
// side, else 1.
int axisTextScale(long width, long height);

// Copies `panel` into `into` with its top-left corner at (x, y); its data
// areas stay data.
void place(Picture& into, const Picture& panel, long x, long y);

// Refuses, before any work, an output path the picture cannot be written
// to: with the gray map any image format, with a colour map .png or .ppm.
void checkPictureOutput(const std::string& path, Colormap map);
// Writes the picture: 8-bit grey with the gray map, RGB with a colour map.
void writePicture(const std::string& path, const Picture& picture, Colormap map);

}  // namespace kxcli
