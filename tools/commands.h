#pragma once
// The kxfreq tool's commands. Each takes the arguments after its name and
// returns the process exit status; failures are thrown (see main.cpp).
#include "image_io.h"

#include <kx/fft.h>

#include <string>
#include <vector>

namespace kxcli {

int runDemo(const std::vector<std::string>& args);
int runSpectrum(const std::vector<std::string>& args);
int runFilter(const std::vector<std::string>& args);
int runRoundtrip(const std::vector<std::string>& args);

extern const char* const kDemoHelp;
extern const char* const kSpectrumHelp;
extern const char* const kFilterHelp;
extern const char* const kRoundtripHelp;

// A failure of a command that is not a usage mistake.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads an image and checks that the library can transform it.
kxio::GreyImage readInput(const std::string& path);
// Forward transform of an 8- or 16-bit image.
void forward(const kxio::GreyImage& image, kxFrequencyBuffer& spectrum);
// Inverse transform to an image of `bits` bits; the buffer is used in place.
kxio::GreyImage inverse(kxFrequencyBuffer& spectrum, int bits, bool scale);

}  // namespace kxcli
