#pragma once
// Internal: the checks and messages the analysis functions share. Each
// message is written here once; the tests compare against the same text.
#include <kx/analysis.h>

#include <cmath>

namespace kx_analysis {

constexpr const char* kUnbound = "Image is not bound.";
constexpr const char* kEmpty = "Image must not be empty.";
constexpr const char* kTooLarge = "Width and Height must be no larger than 2048.";
constexpr const char* kSizesDiffer = "Reference and moving images must have the same size.";
constexpr const char* kWindowLength = "Window length must be between 1 and 2048.";
constexpr const char* kWindowType = "Unknown window type.";
constexpr const char* kTaper = "Tukey taper must be between 0.0 and 1.0.";
constexpr const char* kTooSmall = "Image or spectrum must be at least 8 x 8 for a peak search.";
constexpr const char* kMaxComponents = "Maximum number of components must be at least 1.";
constexpr const char* kThreshold = "Thresholds must be finite and greater than 1.";
constexpr const char* kMaxHarmonic = "Maximum harmonic order must be between 1 and 256.";
constexpr const char* kMinFrequency = "Minimum frequency must be between 0.0 and 0.5.";
constexpr const char* kFilterSize = "Size must be a power of 2 no larger than 2048.";
constexpr const char* kWidths = "Width scale must be between 1 and 10, minimum sigma above 0 and at most 0.1.";
constexpr const char* kComponent = "Component frequencies and widths must be finite.";
constexpr const char* kNoData = "FrequencyBuffer has not been initialized";
constexpr const char* kInverseComputed = "Cannot access frequency data once inverse has been computed.";

// The one-line precondition: throws E with `message` unless `condition`.
template <typename E>
inline void require(bool condition, const char* message)
{
    if (!condition)
        throw E(message);
}

// Bound, not empty, not above 2048 a side: what every image argument needs.
inline void requireImage(const kx_PelBuffer& image)
{
    require<kxFrequencyDefs::UnboundWindow>(image.isBound(), kUnbound);
    require<kxFrequencyDefs::InvalidSize>(image.width() >= 1 && image.height() >= 1, kEmpty);
    require<kxFrequencyDefs::InvalidSize>(image.width() <= 2048 && image.height() <= 2048, kTooLarge);
}

void requireWindow(const kxWindow& window);

// Notches wider than this (cycles per pixel, one standard deviation) are
// narrowed to it: wider is no longer a notch, and the cost of building the
// filter grows with the area each notch covers.
constexpr double kMaxNotchSigma = 0.1;

inline void requireWidths(double widthScale, double minSigma)
{
    require<kxFrequencyDefs::InvalidArgument>(
        widthScale >= 1.0 && widthScale <= 10.0 && minSigma > 0.0 && minSigma <= kMaxNotchSigma, kWidths);
}

// The windowed image (kfApplyWindow's pixels) written into the top left
// corner of `destination`, which is at least as large; nothing else of it
// changes. The image and the window must have been checked.
void windowInto(const kxPelBuffer_const<unsigned char>& image, const kxWindow& window, bool removeMean,
                const kxPelBuffer<double>& destination);
void windowInto(const kxPelBuffer_const<unsigned short>& image, const kxWindow& window, bool removeMean,
                const kxPelBuffer<double>& destination);
void windowInto(const kxPelBuffer_const<double>& image, const kxWindow& window, bool removeMean,
                const kxPelBuffer<double>& destination);

}  // namespace kx_analysis
