#pragma once
// The kxfreq tool's commands. Each takes the arguments after its name and
// returns the process exit status; failures are thrown (see main.cpp).
#include "image_io.h"
#include "options.h"

#include <kx/analysis.h>
#include <kx/fft.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace kxcli {

int runDemo(const std::vector<std::string>& args);
int runSpectrum(const std::vector<std::string>& args);
int runFilter(const std::vector<std::string>& args);
int runRoundtrip(const std::vector<std::string>& args);
int runRegister(const std::vector<std::string>& args);
int runPeaks(const std::vector<std::string>& args);

extern const CommandTable kDemoCommand;
extern const CommandTable kSpectrumCommand;
extern const CommandTable kFilterCommand;
extern const CommandTable kRoundtripCommand;
extern const CommandTable kRegisterCommand;
extern const CommandTable kPeaksCommand;

// A failure of a command that is not a usage mistake.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The option entries every image command shares.
extern const OptionEntry kRegionOption;
extern const OptionEntry kPadOption;

// --region X,Y,W,H (empty region when absent).
kxio::Region regionOption(const Options& options);
// The one input image of a command, or a usage error.
std::string singleInput(const Options& options, const char* command);
// The output path of -o, or a usage error.
std::string outputOption(const Options& options);

// --max N: the most periodic components reported or removed.
extern const OptionEntry kMaxComponentsOption;
long maxComponentsOption(const Options& options);
// Periodic components as lines of text ("component 1: frequency ... period
// ... angle ... strength ... harmonics N", each harmonic indented below its
// component) and as a JSON array; angles in degrees, 0 to 180.
std::vector<std::string> componentLines(const std::vector<kxPeriodicComponent>& components);
std::string componentsJson(const std::vector<kxPeriodicComponent>& components);

// A JSON string literal (quoted and escaped) and a JSON number (all the
// digits a double needs).
std::string jsonString(const std::string& s);
std::string jsonNumber(double v);
// "1.234 s".
std::string formatSeconds(double seconds);

// Writes one line to a stream, never interleaved with another thread's line.
void printLine(std::ostream& stream, const std::string& line);
// "kxfreq: note: " and the notice, on standard error.
void printNote(const std::string& notice);

// Reads an image (or the region of it) that the library can transform; a
// larger image is refused from its header with a hint at --region.
kxio::GreyImage readInput(const std::string& path, const kxio::Region& region);
// The same with the image's channels kept (Channels::Keep) or as grey.
kxio::Image readInputChannels(const std::string& path, const kxio::Region& region, kxio::Channels channels);

enum class Padding { Zero, Mirror };
Padding paddingOption(const Options& options, Padding fallback);

// Forward transform of an 8- or 16-bit image. With mirror padding the
// image is laid into the padded grid with mirrored borders first.
void forward(const kxio::GreyImage& image, Padding padding, kxFrequencyBuffer& spectrum);
void forward(const kxPelBuffer<double>& image, Padding padding, kxFrequencyBuffer& spectrum);

// The real and imaginary parts of the inverse, cropped to width x height.
struct Complex {
    kxPelBuffer<double> real, imag;
};
Complex inverseComplex(const kxFrequencyBuffer& spectrum, long width, long height);

enum class OutputMode { Real, Signed, Magnitude };
// Pixels of `bits` bits from a complex result: the real part, the real part
// plus mid-grey, or the modulus; with `stretch` the values' own range is
// stretched to the full pixel range. Rounded and clamped; nothing wraps.
kxio::GreyImage toPixels(const Complex& result, int bits, OutputMode mode, bool stretch);

// A display picture of a magnitude image: its log stretched from the median
// to the 99.99th percentile, so that periodic peaks stand out.
kxPelBuffer<unsigned char> autoContrastLogPicture(const kxPelBuffer<double>& magnitude);
// The same with other quantiles (0 to 1), optionally leaving the zero
// frequency (the middle) out of them.
kxPelBuffer<unsigned char> logPicture(const kxPelBuffer<double>& magnitude, double lowQuantile, double highQuantile,
                                      bool skipZeroFrequency);

}  // namespace kxcli
