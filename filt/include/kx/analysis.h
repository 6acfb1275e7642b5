#pragma once
/// @file
/// kxfreq: analysis in the frequency domain.
///
/// - Windows: an image multiplied by a separable Hann or Tukey window (and
///   optionally freed of its mean) into a double image, so that a following
///   forward transform sees no step where the image meets its zero padding.
/// - Registration: the translation between two images by phase correlation,
///   to a fraction of a pixel, with a confidence.
/// - Periodic components: the strong isolated peaks of a spectrum (a woven,
///   printed or machined texture, electrical interference), with their
///   harmonics grouped under each fundamental.
/// - Texture removal: reject filters built from those components, applied in
///   one pass, so that one call gives the image without its texture.
///
/// Every failure is an exception of kxFrequencyDefs with a fixed message.
/// Images may have any size from 1 x 1 up to 2048 x 2048 (not only powers of
/// two); the transforms pad them to powers of two.
#include <kx/freqfilt.h>

#include <vector>

/// A separable window: the product of a one-dimensional window along x and
/// one along y, each spanning the image's own width or height (not the padded
/// size).
///
/// For n = 0 .. N-1 on an axis of N samples (a single sample has weight 1):
///
///     Hann:   w(n) = 0.5 - 0.5 cos(2 pi n / (N - 1))
///     Tukey:  with a = taper x (N - 1) / 2,
///             w(n) = 0.5 - 0.5 cos(pi n / a)              n < a
///             w(n) = 1                                    a <= n <= N - 1 - a
///             w(n) = w(N - 1 - n)                         n > N - 1 - a
///
/// Both are symmetric and reach 0 at the first and last sample. Tukey with
/// taper 0 is flat (no window); with taper 1 it is the Hann window.
struct kxWindow {
    /// The window's shape. The underlying type is fixed so that any int
    /// (read from a configuration, say) is a valid value to check; values
    /// other than these are refused.
    enum Type : int {
        eNone = 0,   ///< every weight 1
        eHann = 1,   ///< raised cosine over the whole axis
        eTukey = 2   ///< flat top with raised-cosine tapers
    };

    Type type = eHann;   ///< the shape
    double taper = 0.5;  ///< Tukey only: fraction of each axis inside the two tapers, 0 to 1

    /// Every weight 1.
    static kxWindow none() { return kxWindow{eNone, 0.0}; }
    /// The Hann window.
    static kxWindow hann() { return kxWindow{eHann, 1.0}; }
    /// The Tukey window with the given taper fraction (0 to 1).
    static kxWindow tukey(double taperFraction) { return kxWindow{eTukey, taperFraction}; }
};

/// The weights of `window` along one axis of `length` samples (see kxWindow).
/// @throws kxFrequencyDefs::InvalidArgument for a length below 1 or above 2048,
///         an unknown type, or a Tukey taper outside 0..1 (NaN included).
KXFREQ_API std::vector<double> kfWindowWeights(long length, const kxWindow& window);

// Non-template workers behind kfApplyWindow, one per pixel type.
KXFREQ_API kxPelBuffer<double> kf_ApplyWindow(const kxPelBuffer_const<unsigned char>& image, const kxWindow& window,
                                              bool removeMean);
KXFREQ_API kxPelBuffer<double> kf_ApplyWindow(const kxPelBuffer_const<unsigned short>& image,
                                              const kxWindow& window, bool removeMean);
KXFREQ_API kxPelBuffer<double> kf_ApplyWindow(const kxPelBuffer_const<double>& image, const kxWindow& window,
                                              bool removeMean);

/// The image multiplied by `window`, pixel (x, y) by wx(x) x wy(y), as a
/// double image of the same size, offset and client transform.
///
/// With `removeMean`, the window-weighted mean of the pixels
/// (sum of w I / sum of w) is subtracted before the weighting, so that the
/// result sums to zero: its spectrum has no zero-frequency term and zero
/// padding adds no step. (T = unsigned char, unsigned short or double.)
/// @throws kxFrequencyDefs::UnboundWindow for an unbound image,
///         kxFrequencyDefs::InvalidSize for an empty image or a side above 2048,
///         kxFrequencyDefs::InvalidArgument for a bad window (see kfWindowWeights).
template <typename T>
kxPelBuffer<double> kfApplyWindow(const kxPelBuffer_const<T>& image, const kxWindow& window,
                                  bool removeMean = false)
{
    return kf_ApplyWindow(image, window, removeMean);
}

// ---------------------------------------------------------------------------

/// The result of a phase correlation.
///
/// The translation follows the convention
///
///     moving(x + dx, y + dy) = reference(x, y)
///
/// so a moving image whose content lies 5 pixels to the right of and 3
/// pixels above the reference's gives dx = 5, dy = -3.
struct kxPhaseCorrelation {
    double dx = 0.0;          ///< horizontal translation, pixels
    double dy = 0.0;          ///< vertical translation, pixels (y grows downwards)
    /// Height of the normalised correlation peak, 0 to 1: 1 for an image and
    /// an exact circular shift of it, typically 0.1 to 0.5 for two noisy
    /// views of one scene that overlap by half or more (less the less they
    /// overlap), a few hundredths for unrelated images. The
    /// height is taken at the sub-pixel position (the peak's samples straddle
    /// it), so a half-pixel shift does not lower it.
    double confidence = 0.0;
};

/// How kfPhaseCorrelate prepares the two images.
struct kxPhaseCorrelationOptions {
    kxWindow window = kxWindow::hann();  ///< applied to both images before the transform
    bool removeMean = true;              ///< subtract each image's window-weighted mean first
};

// Non-template workers behind kfPhaseCorrelate, one per pixel type.
KXFREQ_API kxPhaseCorrelation kf_PhaseCorrelate(const kxPelBuffer_const<unsigned char>& reference,
                                                const kxPelBuffer_const<unsigned char>& moving,
                                                const kxPhaseCorrelationOptions& options,
                                                kxPelBuffer<double>* surface);
KXFREQ_API kxPhaseCorrelation kf_PhaseCorrelate(const kxPelBuffer_const<unsigned short>& reference,
                                                const kxPelBuffer_const<unsigned short>& moving,
                                                const kxPhaseCorrelationOptions& options,
                                                kxPelBuffer<double>* surface);
KXFREQ_API kxPhaseCorrelation kf_PhaseCorrelate(const kxPelBuffer_const<double>& reference,
                                                const kxPelBuffer_const<double>& moving,
                                                const kxPhaseCorrelationOptions& options,
                                                kxPelBuffer<double>* surface);

/// The translation between two images of the same size by phase correlation.
///
/// Both images are freed of their mean and windowed (kfApplyWindow, as the
/// options say), transformed (kfForwardFFT, padded to powers of two), and the
/// cross-power spectrum conj(R) x M is normalised to unit modulus (elements
/// of negligible magnitude are set to zero). Its inverse over the whole
/// padded grid is the correlation surface; its highest sample is the integer
/// shift, read modulo the padded size (shifts up to half the padded size in
/// either direction). The fraction of a pixel comes from the surface between
/// its samples, evaluated from the normalised spectrum along x and then y
/// (twice), so that it follows the peak's true shape, sharp or broadened by
/// noise. Images may have any size up to 2048 a side; the shift should stay
/// below about 40 % of the image's side, so that the windowed views still
/// share enough content.
///
/// @param reference the fixed image
/// @param moving    the image whose displacement is measured
/// @param options   window and mean removal (Hann and on by default)
/// @param surface   if not null, receives the correlation surface: a double
///                  image of the padded size with the zero shift at pixel
///                  (width / 2, height / 2), so that pixel (width / 2 + dx,
///                  height / 2 + dy) holds the correlation at integer shift
///                  (dx, dy)
/// @throws kxFrequencyDefs::UnboundWindow for an unbound image,
///         kxFrequencyDefs::InvalidSize for an empty image, a side above 2048
///         or images of different sizes,
///         kxFrequencyDefs::InvalidArgument for a bad window.
template <typename T>
kxPhaseCorrelation kfPhaseCorrelate(const kxPelBuffer_const<T>& reference, const kxPelBuffer_const<T>& moving,
                                    const kxPhaseCorrelationOptions& options = kxPhaseCorrelationOptions(),
                                    kxPelBuffer<double>* surface = nullptr)
{
    return kf_PhaseCorrelate(reference, moving, options, surface);
}

// ---------------------------------------------------------------------------

/// A harmonic of a periodic component: order n times the fundamental's
/// frequency, folded into the spectrum when it passes the Nyquist frequency.
struct kxPeriodicHarmonic {
    long order = 0;          ///< 2, 3, ...
    double fx = 0.0;         ///< horizontal frequency, cycles per pixel, as measured
    double fy = 0.0;         ///< vertical frequency, cycles per pixel, as measured
    double strength = 0.0;   ///< peak magnitude over the noise floor at its radius
};

/// One periodic component of an image: a pair of conjugate peaks of its
/// spectrum at +-(fx, fy), with its harmonics.
///
/// Of the two conjugate peaks the one with fy > 0 (or fy = 0 and fx > 0) is
/// reported. y grows downwards, as in the image, so the angle is measured
/// from the x axis towards the y axis. The wave's crests run perpendicular to
/// the direction (fx, fy), and repeat every `period` pixels along it.
struct kxPeriodicComponent {
    double fx = 0.0;           ///< horizontal frequency, cycles per pixel, -0.5 to 0.5
    double fy = 0.0;           ///< vertical frequency, cycles per pixel, 0 to 0.5
    double frequency = 0.0;    ///< hypot(fx, fy), cycles per pixel
    double period = 0.0;       ///< 1 / frequency, pixels
    double angle = 0.0;        ///< atan2(fy, fx), radians, 0 to pi
    double strength = 0.0;     ///< peak magnitude over the noise floor at its radius
    kxPair<double> sigma;      ///< peak width (standard deviation) along x and y, cycles per pixel
    std::vector<kxPeriodicHarmonic> harmonics;  ///< by increasing order
};

/// How kfFindPeriodicComponents decides what is a peak.
///
/// The noise floor is the median magnitude in a ring around the zero
/// frequency (rings of 1/64 cycle per pixel), so that a natural image's
/// falling spectrum does not pass for peaks at low frequencies.
struct kxPeriodicSearchOptions {
    long maxComponents = 8;          ///< most fundamentals reported, strongest first (1 or more)
    double threshold = 12.0;         ///< a fundamental's magnitude over the floor, at least (above 1)
    double harmonicThreshold = 4.0;  ///< the same for a harmonic at its expected place (above 1)
    long maxHarmonic = 64;           ///< highest harmonic order looked for, up to 256 (1: none)
    double minFrequency = 0.02;      ///< cycles per pixel; slower variations are not texture (0 to 0.5)
};

/// The periodic components of a spectrum (as made by kfForwardFFT; better of
/// a windowed image, see the image form), strongest first.
///
/// Peaks are local maxima of the magnitude that stand out by
/// `options.threshold` over the noise floor: the largest of the median of
/// their ring, of their neighbourhood (outside their main lobe, within three
/// lobes) and of that stretch of their own row and column, so that the
/// ripples along a streak (the spectrum of a straight edge or a shading)
/// do not count. They lie at least `options.minFrequency` and one main lobe
/// from the zero frequency, and not within the main lobe of a stronger
/// peak. Each peak's position is refined to a fraction of
/// a bin by a Gaussian fit through its neighbours. A peak at n times the
/// frequency of a stronger one (n up to `options.maxHarmonic`, allowing for
/// folding) is reported as its harmonic, as is a weaker peak found at such a
/// place above `options.harmonicThreshold`. Of the local maxima over the
/// thresholds, the 1024 strongest are considered.
/// @throws kxFrequencyDefs::Uninitialized for a buffer without data,
///         kxFrequencyDefs::InvalidBuffer for one holding an inverse,
///         kxFrequencyDefs::InvalidSize for a buffer smaller than 8 x 8,
///         kxFrequencyDefs::InvalidArgument for bad options.
KXFREQ_API std::vector<kxPeriodicComponent> kfFindPeriodicComponents(
    const kxFrequencyBuffer& spectrum, const kxPeriodicSearchOptions& options = kxPeriodicSearchOptions());

// Non-template workers behind the image form of kfFindPeriodicComponents.
KXFREQ_API std::vector<kxPeriodicComponent> kf_FindPeriodicComponents(
    const kxPelBuffer_const<unsigned char>& image, const kxPeriodicSearchOptions& options);
KXFREQ_API std::vector<kxPeriodicComponent> kf_FindPeriodicComponents(
    const kxPelBuffer_const<unsigned short>& image, const kxPeriodicSearchOptions& options);
KXFREQ_API std::vector<kxPeriodicComponent> kf_FindPeriodicComponents(const kxPelBuffer_const<double>& image,
                                                                      const kxPeriodicSearchOptions& options);

/// The periodic components of an image: the image is freed of its mean and
/// multiplied by a Hann window, so that its edges add no streaks, then
/// transformed and searched as above. Images smaller than 8 x 8 are refused
/// (InvalidSize), as are unbound ones (UnboundWindow).
template <typename T>
std::vector<kxPeriodicComponent> kfFindPeriodicComponents(
    const kxPelBuffer_const<T>& image, const kxPeriodicSearchOptions& options = kxPeriodicSearchOptions())
{
    return kf_FindPeriodicComponents(image, options);
}

// ---------------------------------------------------------------------------

/// How kfRemovePeriodicTexture removes what it finds.
struct kxTextureRemovalOptions {
    kxPeriodicSearchOptions search;  ///< what counts as a periodic component
    /// Width of each notch (Gaussian standard deviation) in units of the
    /// peak's measured width; at least `minSigma`. 1 to 10.
    double widthScale = 1.5;
    double minSigma = 0.01;          ///< cycles per pixel, above 0 and at most 0.1
};

/// A reject filter for a spectrum of padded size `size`: a transfer
/// function that is 1 everywhere except for a Gaussian notch on both lobes
/// (+-(fx, fy)) of every component and every harmonic, each notch
/// widthScale times the component's width (at least minSigma) in
/// standard deviations, at most 0.1 cycle per pixel (a wider notch is
/// narrowed to that). Notches multiply where they overlap; the zero
/// frequency always keeps gain 1. Apply it with its apply() to the spectrum
/// of the image (unwindowed).
/// @throws kxFrequencyDefs::InvalidArgument for a size that is not a power of
///         two from 1 to 2048, or bad widths.
KXFREQ_API kxFrequencyFilterImage kfPeriodicRejectFilter(const std::vector<kxPeriodicComponent>& components,
                                                         const kxPair<long>& size, double widthScale = 1.5,
                                                         double minSigma = 0.01);

// Non-template workers behind kfRemovePeriodicTexture, one per pixel type.
KXFREQ_API kxPelBuffer<unsigned char> kf_RemovePeriodicTexture(const kxPelBuffer_const<unsigned char>& image,
                                                               const kxTextureRemovalOptions& options,
                                                               std::vector<kxPeriodicComponent>* found);
KXFREQ_API kxPelBuffer<unsigned short> kf_RemovePeriodicTexture(const kxPelBuffer_const<unsigned short>& image,
                                                                const kxTextureRemovalOptions& options,
                                                                std::vector<kxPeriodicComponent>* found);
KXFREQ_API kxPelBuffer<double> kf_RemovePeriodicTexture(const kxPelBuffer_const<double>& image,
                                                        const kxTextureRemovalOptions& options,
                                                        std::vector<kxPeriodicComponent>* found);

/// The image without its periodic texture, in one call: the components are
/// found (kfFindPeriodicComponents on the image), a reject filter is built
/// from them (kfPeriodicRejectFilter, every notch given the widest width
/// asked for) and applied to the spectrum of the image, freed of its mean,
/// in one pass; the spectrum is transformed back.
///
/// Near the image's borders a notch alone removes only part of a texture:
/// there the zero padding begins, and what the notch takes out is the
/// texture times the image's support blurred by the notch's envelope. The
/// part taken out is therefore divided by that blurred support (a separable
/// product, exactly the blur the notches apply) before it is subtracted, so
/// that the texture is removed up to the borders. This needs zero padding
/// as wide as the envelope reaches (3 / (2 pi sigma) pixels), so the image is
/// transformed on a grid enlarged for it when that grid stays within 2048;
/// an image too large for that keeps some texture along its borders.
///
/// The result has the image's size, offset and client transform; 8- and
/// 16-bit results are rounded and clamped to the pixel range. An image
/// without periodic components comes back unchanged but for rounding.
///
/// @param image an 8-bit, 16-bit or double image, 1 x 1 to 2048 x 2048
/// @param options how components are searched for and how wide the notches are
/// @param found if not null, receives the components that were removed
template <typename T>
kxPelBuffer<T> kfRemovePeriodicTexture(const kxPelBuffer_const<T>& image,
                                       const kxTextureRemovalOptions& options = kxTextureRemovalOptions(),
                                       std::vector<kxPeriodicComponent>* found = nullptr)
{
    return kf_RemovePeriodicTexture(image, options, found);
}
