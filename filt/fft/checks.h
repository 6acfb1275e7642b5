#pragma once
// Internal: the library's preconditions, one line each at the call site.
//
// Every fixed message of the library's errors is defined once, in
// checks.cpp; a precondition is one kf_Require line, and every check that
// more than one file makes is a kf_Require... helper here, so a message
// cannot drift between two places that test the same thing.
#include <kx/fft.h>

namespace kxfreq_detail {

// The fixed messages of the library's errors, for the places that throw them
// outside a helper below.
// The buffer and the filters.
extern const char* const kBufferNotInitialized;
extern const char* const kFilterNotInitialized;
extern const char* const kInverseComputed;
extern const char* const kCoordinatesOutOfBounds;
extern const char* const kSizeMismatch;
extern const char* const kSizeNotPowerOfTwo;
extern const char* const kSizeTooLarge;
extern const char* const kPartsDiffer;
extern const char* const kCopiedWidthTooSmall;
extern const char* const kCopiedHeightTooSmall;
extern const char* const kCopiedWidthTooLarge;
extern const char* const kCopiedHeightTooLarge;
extern const char* const kUnsupportedWidth;
extern const char* const kUnsupportedHeight;
extern const char* const kMultiplySize;
extern const char* const kAddSize;
extern const char* const kSubtractSize;
extern const char* const kFrequencyOutOfRange;
extern const char* const kTableTooLarge;
extern const char* const kGaborSigma;
extern const char* const kGaborPlateau;
extern const char* const kRadialSigma;
extern const char* const kRadialPlateau;
extern const char* const kDcRemovalRadius;
extern const char* const kDcProtectionRadius;
// The analysis functions.
extern const char* const kImageUnbound;
extern const char* const kImageEmpty;
extern const char* const kImageSizesDiffer;
extern const char* const kWindowLength;
extern const char* const kWindowType;
extern const char* const kTukeyTaper;
extern const char* const kPeakSearchTooSmall;
extern const char* const kMaxComponents;
extern const char* const kThresholds;
extern const char* const kMaxHarmonic;
extern const char* const kMinFrequency;
extern const char* const kRejectFilterSize;
extern const char* const kNotchWidths;
extern const char* const kComponentNotFinite;

// The one-line precondition: throws E with `message` unless `condition`.
template <typename E>
void kf_Require(bool condition, const char* message)
{
    if (!condition)
        throw E(message);
}

// Uninitialized unless the buffer has data.
void kf_RequireInitialized(const kxFrequencyBuffer& buffer);
// InvalidBuffer once an in-place inverse has turned the store into spatial
// data.
void kf_RequireNotInverted(const kxFrequencyBuffer& buffer);
// Both of the above, in that order.
void kf_RequireFrequencyData(const kxFrequencyBuffer& buffer);
// Uninitialized, with the filter's own message, without a
// transfer function.
void kf_RequireTransferFunction(const void* table);
// InvalidSize unless the buffer's padded width is size.x, then its height
// size.y.
void kf_RequireFilterSize(const kxFrequencyBuffer& buffer, const kxPair<long>& size);
// InvalidSize unless both sides pass the library's power-of-two test, x first.
void kf_RequirePowerOfTwoSize(const kxPair<long>& size);
// For a radius other than 0: the tests the element accessors would make on
// the square of frequencies -(radius - 1) .. radius - 1 around the zero
// frequency, made before anything is written: InvalidBuffer after an
// in-place inverse, then BadCoord unless the square lies inside the buffer.
void kf_RequireDcSquareInside(const kxFrequencyBuffer& buffer, long radius);
// InvalidArgument unless the DC radius is at least 0; the message names the
// radius as the filter does (removal for pass filters, protection for
// reject filters).
void kf_RequireDcRadius(long radius, bool protection);
// UnboundWindow unless the image is bound.
void kf_RequireBound(const kx_PelBuffer& image);

}  // namespace kxfreq_detail
