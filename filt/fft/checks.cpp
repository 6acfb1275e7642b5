#include "fft/checks.h"

#include "fft/buffer_access.h"
#include "fft/frequency_index.h"

namespace kxfreq_detail {

const char* const kBufferNotInitialized = "FrequencyBuffer has not been initialized";
const char* const kFilterNotInitialized = "FrequencyFilter has not been initialized";
const char* const kInverseComputed = "Cannot access frequency data once inverse has been computed.";
const char* const kCoordinatesOutOfBounds = "Coordinates are out of bounds";
const char* const kSizeMismatch = "Size of frequency buffer does not match size of filter.";
const char* const kSizeNotPowerOfTwo = "Size must be a power of 2.";
const char* const kSizeTooLarge = "Width and Height must be no larger than 2048.";
const char* const kPartsDiffer = "Real and Imaginary PelBuffers must have the same dimensions and offset.";
const char* const kCopiedWidthTooSmall = "Copied width must be > 1";
const char* const kCopiedHeightTooSmall = "Copied height must be > 1";
const char* const kCopiedWidthTooLarge = "Copied width cannot be greater than source width";
const char* const kCopiedHeightTooLarge = "Copied height cannot be greater than source height";
const char* const kUnsupportedWidth = "Unsupported width";
const char* const kUnsupportedHeight = "Unsupported height";
const char* const kMultiplySize = "Can only multiply equal-sized frequency buffers.";
const char* const kAddSize = "Can only add equal-sized frequency buffers.";
const char* const kSubtractSize = "Can only subtract equal-sized frequency buffers.";
const char* const kFrequencyOutOfRange = "Frequency must be between 0.0 and 0.5.";
const char* const kTableTooLarge = "Sigma and plateau values are too large for the filter size.";
const char* const kGaborSigma = "Sigma values must be positive.";
const char* const kGaborPlateau = "Plateau values cannot be negative.";
const char* const kRadialSigma = "Sigma must be positive.";
const char* const kRadialPlateau = "Plateau cannot be negative.";
const char* const kDcRemovalRadius = "DC Removal Radius cannot be negative.";
const char* const kDcProtectionRadius = "DC Protection Radius cannot be negative.";

const char* const kImageUnbound = "Image is not bound.";
const char* const kImageEmpty = "Image must not be empty.";
const char* const kImageSizesDiffer = "Reference and moving images must have the same size.";
const char* const kWindowLength = "Window length must be between 1 and 2048.";
const char* const kWindowType = "Unknown window type.";
const char* const kTukeyTaper = "Tukey taper must be between 0.0 and 1.0.";
const char* const kPeakSearchTooSmall = "Image or spectrum must be at least 8 x 8 for a peak search.";
const char* const kMaxComponents = "Maximum number of components must be at least 1.";
const char* const kThresholds = "Thresholds must be finite and greater than 1.";
const char* const kMaxHarmonic = "Maximum harmonic order must be between 1 and 256.";
const char* const kMinFrequency = "Minimum frequency must be between 0.0 and 0.5.";
const char* const kRejectFilterSize = "Size must be a power of 2 no larger than 2048.";
const char* const kNotchWidths = "Width scale must be between 1 and 10, minimum sigma above 0 and at most 0.1.";
const char* const kComponentNotFinite = "Component frequencies and widths must be finite.";

void kf_RequireInitialized(const kxFrequencyBuffer& buffer)
{
    kf_Require<kxFrequencyDefs::Uninitialized>(kx_FrequencyBufferAccess::data(buffer) != nullptr,
                                               kBufferNotInitialized);
}

void kf_RequireNotInverted(const kxFrequencyBuffer& buffer)
{
    kf_Require<kxFrequencyDefs::InvalidBuffer>(!kx_FrequencyBufferAccess::inverseComputed(buffer), kInverseComputed);
}

void kf_RequireFrequencyData(const kxFrequencyBuffer& buffer)
{
    kf_RequireInitialized(buffer);
    kf_RequireNotInverted(buffer);
}

void kf_RequireTransferFunction(const void* table)
{
    kf_Require<kxFrequencyDefs::Uninitialized>(table != nullptr, kFilterNotInitialized);
}

void kf_RequireFilterSize(const kxFrequencyBuffer& buffer, const kxPair<long>& size)
{
    kf_Require<kxFrequencyDefs::InvalidSize>(buffer.width() == size.x(), kSizeMismatch);
    kf_Require<kxFrequencyDefs::InvalidSize>(buffer.height() == size.y(), kSizeMismatch);
}

void kf_RequirePowerOfTwoSize(const kxPair<long>& size)
{
    kf_Require<kxFrequencyDefs::InvalidSize>(kf_IsPowerOfTwo(size.x()), kSizeNotPowerOfTwo);
    kf_Require<kxFrequencyDefs::InvalidSize>(kf_IsPowerOfTwo(size.y()), kSizeNotPowerOfTwo);
}

// The square reaches radius - 1 to both sides of the zero frequency, and the
// positive side is the tighter one.
void kf_RequireDcSquareInside(const kxFrequencyBuffer& buffer, long radius)
{
    if (radius == 0)
        return;
    kf_RequireNotInverted(buffer);
    kf_Require<kxFrequencyDefs::BadCoord>(
        kf_IsAxisFrequency(radius - 1, buffer.width()) && kf_IsAxisFrequency(radius - 1, buffer.height()),
        kCoordinatesOutOfBounds);
}

void kf_RequireDcRadius(long radius, bool protection)
{
    kf_Require<kxFrequencyDefs::InvalidArgument>(radius >= 0, protection ? kDcProtectionRadius : kDcRemovalRadius);
}

void kf_RequireBound(const kx_PelBuffer& image)
{
    if (!image.isBound())
        throw kxFrequencyDefs::UnboundWindow();
}

}  // namespace kxfreq_detail
