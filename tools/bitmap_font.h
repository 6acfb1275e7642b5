#pragma once
// A small built-in 5 x 7 bitmap font for captions on the tool's pictures:
// capital letters, digits and a little punctuation (other characters are
// drawn as blanks, small letters as capitals).
#include <kx/core/pel_buffer.h>

#include <string>

namespace kxcli {

// Draws `text` with its top-left corner at (x, y), each font pixel as a
// scale x scale square of `value`. Pixels outside the image are skipped.
void drawText(kxPelBuffer<unsigned char>& image, long x, long y, const std::string& text, int scale,
              unsigned char value);
// The width and height drawText covers.
long textWidth(const std::string& text, int scale);
long textHeight(int scale);

}  // namespace kxcli
