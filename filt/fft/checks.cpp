#include "fft/checks.h"

#include "fft/buffer_access.h"

namespace kxfreq_detail {

const char* const kBufferNotInitialized = "FrequencyBuffer has not been initialized";
const char* const kFilterNotInitialized = "FrequencyFilter has not been initialized";
const char* const kInverseComputed = "Cannot access frequency data once inverse has been computed.";
const char* const kCoordinatesOutOfBounds = "Coordinates are out of bounds";
const char* const kSizeMismatch = "Size of frequency buffer does not match size of filter.";
const char* const kSizeNotPowerOfTwo = "Size must be a power of 2.";
const char* const kSizeTooLarge = "Width and Height must be no larger than 2048.";
const char* const kFrequencyOutOfRange = "Frequency must be between 0.0 and 0.5.";
const char* const kTableTooLarge = "Sigma and plateau values are too large for the filter size.";

void kf_RequireInitialized(const kxFrequencyBuffer& buffer)
{
    if (!kx_FrequencyBufferAccess::data(buffer))
        throw kxFrequencyDefs::Uninitialized(kBufferNotInitialized);
}

void kf_RequireNotInverted(const kxFrequencyBuffer& buffer)
{
    if (kx_FrequencyBufferAccess::inverseComputed(buffer))
        throw kxFrequencyDefs::InvalidBuffer(kInverseComputed);
}

void kf_RequireFrequencyData(const kxFrequencyBuffer& buffer)
{
    kf_RequireInitialized(buffer);
    kf_RequireNotInverted(buffer);
}

void kf_RequireTransferFunction(const void* table)
{
    if (!table)
        throw kxFrequencyDefs::Uninitialized(kFilterNotInitialized);
}

void kf_RequireFilterSize(const kxFrequencyBuffer& buffer, const kxPair<long>& size)
{
    if (buffer.width() != size.x())
        throw kxFrequencyDefs::InvalidSize(kSizeMismatch);
    if (buffer.height() != size.y())
        throw kxFrequencyDefs::InvalidSize(kSizeMismatch);
}

void kf_RequirePowerOfTwoSize(const kxPair<long>& size)
{
    if (!kf_IsPowerOfTwo(size.x()))
        throw kxFrequencyDefs::InvalidSize(kSizeNotPowerOfTwo);
    if (!kf_IsPowerOfTwo(size.y()))
        throw kxFrequencyDefs::InvalidSize(kSizeNotPowerOfTwo);
}

// Centred x is valid from -(W/2) up to (W+1)/2 exclusive; the square reaches
// radius - 1 to both sides, and the positive side is the tighter one.
void kf_RequireDcSquareInside(const kxFrequencyBuffer& buffer, long radius)
{
    if (radius == 0)
        return;
    kf_RequireNotInverted(buffer);
    const long width = buffer.width(), height = buffer.height();
    if (!(radius - 1 < (width + 1) / 2 && radius - 1 < (height + 1) / 2))
        throw kxFrequencyDefs::BadCoord(kCoordinatesOutOfBounds);
}

void kf_RequireDcRadius(long radius, bool protection)
{
    if (radius < 0)
        throw kxFrequencyDefs::InvalidArgument(protection ? "DC Protection Radius cannot be negative."
                                                          : "DC Removal Radius cannot be negative.");
}

void kf_RequireBound(const kx_PelBuffer& image)
{
    if (!image.isBound())
        throw kxFrequencyDefs::UnboundWindow();
}

}  // namespace kxfreq_detail
