#pragma once
// Colour maps for the tool's pictures: a grey level (0 to 255) to a colour.
#include <string>
#include <vector>

namespace kxcli {

enum class Colormap { Gray, Magma };

struct Rgb {
    unsigned char r, g, b;
};

// The names --colormap accepts, and the map a name stands for (a name not in
// the list is a programming error: options are checked against the list).
const std::vector<std::string>& colormapNames();
Colormap colormapNamed(const std::string& name);

// The colour of grey level `level`. Gray keeps the level; magma runs from
// near black through purple and orange to pale yellow, its brightness rising
// steadily, so that it reads the same printed in grey.
Rgb colourOf(Colormap map, unsigned char level);

}  // namespace kxcli
