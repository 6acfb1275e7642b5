#pragma once
/// @file
/// kxfreq: images of any size.
///
/// A transform holds at most kfMaxTransformSide pixels in a side. Filtering
/// with a transfer function that is smooth in frequency is a convolution with
/// a kernel of limited reach, so a larger image is filtered exactly by
/// overlapping tiles (overlap-save): each tile of T x T pixels reads `margin`
/// pixels beyond the part it writes (its core), image borders are extended by
/// mirroring, and only the core of each filtered tile is kept.
///
///     +--------------------------- tile (T x T) --+
///     |  margin                                    |
///     |    +------------ core ---------------+    |
///     |    |  written to the result          |    |
///     |    +---------------------------------+    |
///     |                                            |
///     +--------------------------------------------+
///
/// - Filter descriptions hold a filter's parameters without a size and make
///   the library's filter for the grid of each tile; they state how far their
///   kernel reaches and the margin that follows from it.
/// - kfFilterTiled filters an image in memory (any strides) or streams it
///   from a row source into a row sink, with memory that grows with the
///   width, the tile and the margin but not with the height.
/// - kfWelchSpectrum averages the power spectra of overlapping windowed
///   tiles; the periodic-component search and texture removal run on it.
///
/// An image whose padded size fits in one tile is filtered by one transform
/// of its padded size, exactly as forward + apply + inverse do it (mirror
/// padding, as the tool's --pad mirror). Every failure is an exception of
/// kxFrequencyDefs with a fixed message.
#include <kx/analysis.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

// The smallest and largest tile side (the largest is the default).
constexpr long kfMinTileSide = 64;
constexpr long kfMaxTileSide = kfMaxTransformSide;

// The sample types an image may have.
enum kxSampleType : int {
    eSampleU8 = 0,   // unsigned char, 0..255
    eSampleU16 = 1,  // unsigned short, 0..65535
    eSampleF32 = 2,  // float
    eSampleF64 = 3   // double
};

// ---------------------------------------------------------------------------
// Filter descriptions

// A filter without a size: its parameters in cycles per pixel and radians,
// from which the library's filter is made for any padded grid.
//
// The DC radius counts elements of each transform's grid, as the filters
// take it: 1 is the zero frequency alone, R the (2R - 1) x (2R - 1) square
// around it. On a tiled image it applies to each tile's grid, whose
// elements are 1/tile cycles per pixel apart; the square should lie where
// the filter's gain is already close to 0 (pass filters) or 1 (reject
// filters), as it is at the zero frequency for a lobe or ring away from it.
//
// Margin: the kernel of a Gaussian of standard deviation sigma (cycles per
// pixel) in frequency is a Gaussian envelope of 1 / (2 pi sigma) pixels.
// What a tile loses of a kernel cut at `margin` pixels is estimated as
//     fullScale x A x 2 pi s^2 x exp(-margin^2 / (2 s^2))
// with s the widest envelope (the narrowest sigma) and A the area of the
// pass band; the margin is the smallest that keeps this under half a grey
// level of the output. For Gaussian bands this is a bound. A plateau widens
// A, but its shoulders (where the flat top meets the flanks) give the
// kernel ripples that decay more slowly than the envelope, which the
// estimate does not follow; give a larger margin for wide plateaus with
// 16-bit results.
class KXFREQ_API kxFilterDescription {
public:
    virtual ~kxFilterDescription();

    // A new heap copy; the caller owns it.
    virtual std::unique_ptr<kxFilterDescription> clone() const = 0;
    // The filter that is applied to spectra of padded size `size`
    // (InvalidArgument or InvalidSize for bad parameters, as the filter's
    // constructor says). Its apply() is const, so one filter serves every
    // tile of that size on every thread.
    virtual std::unique_ptr<kxFrequencyFilter> makeFilter(const kxPair<long>& size) const = 0;
    // The factor the inverse transform's result is multiplied by: 2 for the
    // Gabor pass filter, whose one lobe carries half of a real pattern, so
    // that the real part gives the pattern and the magnitude its envelope.
    virtual double resultScale() const { return 1.0; }

    // The standard deviation of the widest Gaussian envelope of the spatial
    // kernel, in pixels: 1 / (2 pi x narrowest sigma).
    virtual double kernelWidth() const = 0;
    // The area of the pass band in cycles per pixel squared (A above).
    virtual double passBandArea() const = 0;
    // The overlap margin in pixels for an output of full scale `fullScale`
    // (255 for 8-bit, 65535 for 16-bit and floating-point outputs).
    long margin(double fullScale) const;
    // Whether the filter can be tiled (false: only an image that fits in one
    // transform can be filtered with it).
    virtual bool tileable() const { return true; }

protected:
    kxFilterDescription() = default;
    kxFilterDescription(const kxFilterDescription&) = default;
    kxFilterDescription& operator=(const kxFilterDescription&) = default;
};

// What the two Gabor descriptions share: the lobe's parameters and the
// reach of its kernel. Use the two classes below.
class KXFREQ_API kx_GaborShape : public kxFilterDescription {
public:
    kxPair<double> sigma{0.01, 0.01};   // along, across the direction, cycles per pixel
    kxPair<double> plateau{0.0, 0.0};   // half-widths of the flat top, cycles per pixel
    double angle = 0.0;                 // radians
    double frequency = 0.1;             // cycles per pixel, 0 to 0.5
    long dcRadius = 0;                  // square cleared (pass) or protected (reject), grid elements (0: none)

    double kernelWidth() const override;
    // One lobe's area.
    double passBandArea() const override;
};

// The oriented band-pass filter (kxFrequencyFilterGabor), its result
// doubled (see resultScale).
class KXFREQ_API kxGaborDescription : public kx_GaborShape {
public:
    std::unique_ptr<kxFilterDescription> clone() const override;
    std::unique_ptr<kxFrequencyFilter> makeFilter(const kxPair<long>& size) const override;
    double resultScale() const override { return 2.0; }
};

// The Gabor reject filter for a real pattern: the lobe at `angle` and its
// mirror at angle + pi are both rejected: makeFilter gives a
// kxFrequencyFilterImage whose gain is the one-lobe filter's gain times its
// gain at the mirrored frequency.
class KXFREQ_API kxGaborRejectDescription : public kx_GaborShape {
public:
    std::unique_ptr<kxFilterDescription> clone() const override;
    std::unique_ptr<kxFrequencyFilter> makeFilter(const kxPair<long>& size) const override;
    // The one-lobe kxFrequencyFilterGaborReject for that size.
    std::unique_ptr<kxFrequencyFilter> makeOneLobeFilter(const kxPair<long>& size) const;
    // Both lobes' area.
    double passBandArea() const override;
};

// What the two radial descriptions share: the ring's parameters and the
// reach of its kernel. Use the two classes below.
class KXFREQ_API kx_RingShape : public kxFilterDescription {
public:
    double sigma = 0.01;      // flank standard deviation, cycles per pixel
    double plateau = 0.0;     // half-width of the flat ring, cycles per pixel
    double frequency = 0.1;   // ring radius, cycles per pixel, 0 to 0.5
    long dcRadius = 0;        // square cleared (pass) or protected (reject), grid elements (0: none)

    double kernelWidth() const override;
    double passBandArea() const override;
};

// The radial band-pass filter (kxFrequencyFilterBandPass).
class KXFREQ_API kxBandPassDescription : public kx_RingShape {
public:
    std::unique_ptr<kxFilterDescription> clone() const override;
    std::unique_ptr<kxFrequencyFilter> makeFilter(const kxPair<long>& size) const override;
};

// The radial band-reject filter (kxFrequencyFilterBandReject).
class KXFREQ_API kxBandRejectDescription : public kx_RingShape {
public:
    std::unique_ptr<kxFilterDescription> clone() const override;
    std::unique_ptr<kxFrequencyFilter> makeFilter(const kxPair<long>& size) const override;
};

// Notches at periodic components and their harmonics (kfPeriodicRejectFilter)
// for any size: what texture removal applies tile by tile.
class KXFREQ_API kxPeriodicRejectDescription : public kxFilterDescription {
public:
    std::vector<kxPeriodicComponent> components;   // what is removed, with their harmonics
    double widthScale = 1.5;   // notch width in units of the peak's width (as kxTextureRemovalOptions)
    double minSigma = 0.01;    // narrowest notch, cycles per pixel

    std::unique_ptr<kxFilterDescription> clone() const override;
    std::unique_ptr<kxFrequencyFilter> makeFilter(const kxPair<long>& size) const override;
    double kernelWidth() const override;
    double passBandArea() const override;
};

// A filter of one fixed size (a kxFrequencyFilterImage, a filter loaded from
// a file): usable only on an image whose padded size is the filter's own,
// by one transform. Larger images are refused: a gain table of one size
// cannot be made for a tile.
class KXFREQ_API kxFixedFilterDescription : public kxFilterDescription {
public:
    // A copy of `filter`; `size` is the padded size it applies to.
    kxFixedFilterDescription(const kxFrequencyFilter& filter, const kxPair<long>& size);
    kxFixedFilterDescription(const kxFixedFilterDescription& other);
    kxFixedFilterDescription& operator=(const kxFixedFilterDescription& other);
    ~kxFixedFilterDescription() override;

    std::unique_ptr<kxFilterDescription> clone() const override;
    // The filter itself, whatever the size: applied to a spectrum of another
    // padded size than its own, it refuses it (InvalidSize).
    std::unique_ptr<kxFrequencyFilter> makeFilter(const kxPair<long>& size) const override;
    double kernelWidth() const override { return 0.0; }
    double passBandArea() const override { return 0.0; }
    bool tileable() const override { return false; }
    kxPair<long> size() const { return size_; }

private:
    std::unique_ptr<kxFrequencyFilter> filter_;
    kxPair<long> size_;
};

// ---------------------------------------------------------------------------
// Images in memory and streamed

// A view of an image in memory: pixel (x, y) at the byte address
// data + y x rowStride + x x pixelStride. Strides are in bytes and may be
// anything (a column-major or sliced array); the view does not own the
// pixels.
template <typename T>
struct kxImageView {
    T* data = nullptr;   // pixel (0, 0)
    long width = 0;      // pixels in a row
    long height = 0;     // rows
    std::ptrdiff_t rowStride = 0;     // bytes from one row to the next
    std::ptrdiff_t pixelStride = sizeof(T);  // bytes from one pixel to the next in a row

    // Pixel (x, y), unchecked.
    T& operator()(long x, long y) const
    {
        using Byte = std::conditional_t<std::is_const<T>::value, const char, char>;
        return *reinterpret_cast<T*>(reinterpret_cast<Byte*>(data) + y * rowStride + x * pixelStride);
    }

    // The same pixels, read-only.
    template <typename U = T, std::enable_if_t<!std::is_const<U>::value, int> = 0>
    operator kxImageView<const U>() const
    {
        return kxImageView<const U>{data, width, height, rowStride, pixelStride};
    }
};

// A view of a pel buffer's pixels.
template <typename T>
kxImageView<const T> kfImageView(const kxPelBuffer_const<T>& image)
{
    return kxImageView<const T>{image.pointToOffset(), image.width(), image.height(),
                                static_cast<std::ptrdiff_t>(image.rowUpdate() * sizeof(T)), sizeof(T)};
}

// A view of a writable pel buffer's pixels.
template <typename T>
kxImageView<T> kfImageView(const kxPelBuffer<T>& image)
{
    return kxImageView<T>{image.pointToOffset(), image.width(), image.height(),
                          static_cast<std::ptrdiff_t>(image.rowUpdate() * sizeof(T)), sizeof(T)};
}

// Where the rows of an image come from, top to bottom, once each (a file
// read row by row, say). read() is called with the sample type type() says
// (the others throw InvalidArgument) and fills `count` rows of width()
// samples, packed one after another.
class KXFREQ_API kxRowSource {
public:
    virtual ~kxRowSource();
    // The image's size and sample type.
    virtual long width() const = 0;
    virtual long height() const = 0;
    virtual kxSampleType type() const = 0;
    // The next `count` rows, in the type type() says.
    virtual void read(unsigned char* rows, long count);
    virtual void read(unsigned short* rows, long count);
    virtual void read(float* rows, long count);
    virtual void read(double* rows, long count);
};

// Where the rows of a result go, top to bottom, once each. write() is called
// with the sample type the filtering was asked for (the others throw
// InvalidArgument): `count` rows of the source's width, packed.
class KXFREQ_API kxRowSink {
public:
    virtual ~kxRowSink();
    // The next `count` rows, in the type asked for.
    virtual void write(const unsigned char* rows, long count);
    virtual void write(const unsigned short* rows, long count);
    virtual void write(const float* rows, long count);
    virtual void write(const double* rows, long count);
};

// How kfFilterTiled works and what it gives.
struct kxTileOptions {
    // What the result holds (as the tool's --output): the real part of the
    // filtered image; the same plus mid-grey (128 or 32768) for integer
    // results (floating-point results are the real part as it is); or the
    // magnitude. Integer results are rounded and clamped to the pixel
    // range; floating-point ones are not rounded. On tiles, a filter whose
    // gain is real and the same at f and -f (all but the Gabor pass filter)
    // filters two tiles in one transform, as its real and imaginary parts;
    // the imaginary part of its result is then taken as 0 (it is rounding
    // noise), so that its magnitude is the real part's absolute value.
    enum Output : int { eReal = 0, eSigned = 1, eMagnitude = 2 };

    long tile = kfMaxTileSide;   // tile side: a power of two, kfMinTileSide to kfMaxTileSide
    long margin = -1;            // overlap margin in pixels; below 0: the description's
    unsigned jobs = 1;           // threads working on tiles (1: the calling thread alone)
    Output output = eReal;
    // Called after each tile (from the calling thread) with the tiles done
    // and the total; may be empty.
    std::function<void(long done, long total)> progress;
};

// What a tiled filtering did.
struct kxTileReport {
    long tile = 0;        // tile side (the padded size for one transform; a side of the image
                          // narrower than a tile takes tiles only as long as it needs)
    long margin = 0;      // margin used (0 for one transform)
    long tiles = 0;       // tiles processed (two may share one transform)
    bool single = false;  // true when the image took one transform of its padded size
};

// The margin kfFilterTiled uses for `filter` on an image of `type` with
// `options` (the caller's, or the description's for the output's full
// scale), after checking that it fits the tile.
// @throws kxFrequencyDefs::InvalidArgument for a tile that is not a power
//         of two from 64 to 2048, or a margin that leaves no core (the
//         message says the largest that fits).
KXFREQ_API long kfTileMargin(const kxFilterDescription& filter, kxSampleType outputType,
                             const kxTileOptions& options);

// Filters the image `source` gives into `sink`, tile by tile, with the
// result's samples of type `outputType`. Memory: about tile x width input
// samples plus, per job, the buffers of one tile.
//
// The result is the same bit for bit for every number of jobs, and the
// same as the in-memory form's. When kxAttention stops it (or the source
// or sink throws) the exception propagates after every job has ended;
// the sink may have received some rows.
// @throws kxFrequencyDefs::InvalidArgument for bad options (see
//         kfTileMargin), an untileable filter on an image larger than one
//         tile, a sample type the source or sink does not take;
//         kxFrequencyDefs::InvalidSize for an empty image or a side of 2^31 or more.
KXFREQ_API kxTileReport kfFilterTiled(kxRowSource& source, const kxFilterDescription& filter, kxRowSink& sink,
                                      kxSampleType outputType, const kxTileOptions& options = kxTileOptions());

// Non-template workers behind the in-memory kfFilterTiled: input and output
// of the four sample types.
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const unsigned char>& image, const kxFilterDescription& filter,
                                       const kxImageView<unsigned char>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const unsigned char>& image, const kxFilterDescription& filter,
                                       const kxImageView<unsigned short>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const unsigned char>& image, const kxFilterDescription& filter,
                                       const kxImageView<float>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const unsigned char>& image, const kxFilterDescription& filter,
                                       const kxImageView<double>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const unsigned short>& image, const kxFilterDescription& filter,
                                       const kxImageView<unsigned char>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const unsigned short>& image, const kxFilterDescription& filter,
                                       const kxImageView<unsigned short>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const unsigned short>& image, const kxFilterDescription& filter,
                                       const kxImageView<float>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const unsigned short>& image, const kxFilterDescription& filter,
                                       const kxImageView<double>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const float>& image, const kxFilterDescription& filter,
                                       const kxImageView<unsigned char>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const float>& image, const kxFilterDescription& filter,
                                       const kxImageView<unsigned short>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const float>& image, const kxFilterDescription& filter,
                                       const kxImageView<float>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const float>& image, const kxFilterDescription& filter,
                                       const kxImageView<double>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const double>& image, const kxFilterDescription& filter,
                                       const kxImageView<unsigned char>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const double>& image, const kxFilterDescription& filter,
                                       const kxImageView<unsigned short>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const double>& image, const kxFilterDescription& filter,
                                       const kxImageView<float>& result, const kxTileOptions& options);
KXFREQ_API kxTileReport kf_FilterTiled(const kxImageView<const double>& image, const kxFilterDescription& filter,
                                       const kxImageView<double>& result, const kxTileOptions& options);

// Filters an image in memory into `result`, a view of the same size (In and
// Out: unsigned char, unsigned short, float, double). Nothing but `result`
// is written; the two must not overlap.
// @throws as the streaming form, and kxFrequencyDefs::InvalidSize for a
//         result of another size.
template <typename In, typename Out>
kxTileReport kfFilterTiled(const kxImageView<In>& image, const kxFilterDescription& filter,
                           const kxImageView<Out>& result, const kxTileOptions& options = kxTileOptions())
{
    return kf_FilterTiled(kxImageView<const std::remove_const_t<In>>(image), filter, result, options);
}

// The same for pel buffers: a result of the image's size and type.
template <typename T>
kxPelBuffer<T> kfFilterTiled(const kxPelBuffer_const<T>& image, const kxFilterDescription& filter,
                             const kxTileOptions& options = kxTileOptions())
{
    kxPelBuffer<T> result(image.width(), image.height());
    kf_FilterTiled(kfImageView<T>(image), filter, kfImageView<T>(result), options);
    return result;
}

// ---------------------------------------------------------------------------
// Spectrum, peaks and texture of any size

// How kfWelchSpectrum averages.
struct kxWelchOptions {
    long segment = 1024;                 // tile side, a power of two from 64 to 2048
    double overlap = 0.5;                // fraction of a tile shared with the next, 0 to 0.75
    kxWindow window = kxWindow::hann();  // applied to each tile, freed of its mean
    unsigned jobs = 1;                   // threads
};

// The Welch-averaged spectrum of an image of any size: the image is cut
// into segment x segment tiles overlapping by `overlap` (the last ones
// moved in to end at the image's border), each freed of its mean, windowed
// and transformed, and the power |X|^2 averaged over the tiles. The result
// is a spectrum of segment x segment whose real parts are the square root
// of the averaged power (an amplitude on the scale of one tile's transform)
// and whose imaginary parts are 0, so that kfFindPeriodicComponents reads
// it as it reads one tile's spectrum. An image smaller than a segment gives
// one tile of its padded size. Bit-identical for every number of jobs.
// @throws kxFrequencyDefs::InvalidArgument for bad options,
//         kxFrequencyDefs::InvalidSize for an image smaller than 8 x 8.
KXFREQ_API kxFrequencyBuffer kfWelchSpectrum(kxRowSource& source, const kxWelchOptions& options = kxWelchOptions());

// Non-template workers behind the in-memory kfWelchSpectrum.
KXFREQ_API kxFrequencyBuffer kf_WelchSpectrum(const kxImageView<const unsigned char>& image,
                                              const kxWelchOptions& options);
KXFREQ_API kxFrequencyBuffer kf_WelchSpectrum(const kxImageView<const unsigned short>& image,
                                              const kxWelchOptions& options);
KXFREQ_API kxFrequencyBuffer kf_WelchSpectrum(const kxImageView<const float>& image, const kxWelchOptions& options);
KXFREQ_API kxFrequencyBuffer kf_WelchSpectrum(const kxImageView<const double>& image,
                                              const kxWelchOptions& options);

// The Welch spectrum of an image in memory (any strides).
template <typename T>
kxFrequencyBuffer kfWelchSpectrum(const kxImageView<T>& image, const kxWelchOptions& options = kxWelchOptions())
{
    return kf_WelchSpectrum(kxImageView<const std::remove_const_t<T>>(image), options);
}

// The periodic components of an image of any size, found on its Welch
// spectrum (frequencies in cycles per pixel of the image).
template <typename T>
std::vector<kxPeriodicComponent> kfFindPeriodicComponentsTiled(
    const kxImageView<T>& image, const kxPeriodicSearchOptions& search = kxPeriodicSearchOptions(),
    const kxWelchOptions& welch = kxWelchOptions())
{
    return kfFindPeriodicComponents(kfWelchSpectrum(image, welch), search);
}

// Texture removal on an image of any size: components found on the Welch
// spectrum, removed with their notches (kxPeriodicRejectDescription) tile
// by tile into `result` (real part, rounded and clamped for integers).
// Returns the components removed.
template <typename In, typename Out>
std::vector<kxPeriodicComponent> kfRemovePeriodicTextureTiled(const kxImageView<In>& image,
                                                              const kxImageView<Out>& result,
                                                              const kxTextureRemovalOptions& removal,
                                                              const kxTileOptions& tiling = kxTileOptions(),
                                                              const kxWelchOptions& welch = kxWelchOptions())
{
    kxPeriodicRejectDescription notches;
    notches.components = kfFindPeriodicComponents(kfWelchSpectrum(image, welch), removal.search);
    notches.widthScale = removal.widthScale;
    notches.minSigma = removal.minSigma;
    kfFilterTiled(image, notches, result, tiling);
    return notches.components;
}

// ---------------------------------------------------------------------------
// Registration of images of any size

// How kfPhaseCorrelateLarge registers two large images.
struct kxLargeRegistrationOptions {
    long window = 1024;   // side of the full-resolution windows, a power of two from 64 to 2048
    kxPhaseCorrelationOptions correlation;   // window and mean removal of each correlation
};

// Non-template workers behind kfPhaseCorrelateLarge.
KXFREQ_API kxPhaseCorrelation kf_PhaseCorrelateLarge(const kxImageView<const unsigned char>& reference,
                                                     const kxImageView<const unsigned char>& moving,
                                                     const kxLargeRegistrationOptions& options);
KXFREQ_API kxPhaseCorrelation kf_PhaseCorrelateLarge(const kxImageView<const unsigned short>& reference,
                                                     const kxImageView<const unsigned short>& moving,
                                                     const kxLargeRegistrationOptions& options);
KXFREQ_API kxPhaseCorrelation kf_PhaseCorrelateLarge(const kxImageView<const float>& reference,
                                                     const kxImageView<const float>& moving,
                                                     const kxLargeRegistrationOptions& options);
KXFREQ_API kxPhaseCorrelation kf_PhaseCorrelateLarge(const kxImageView<const double>& reference,
                                                     const kxImageView<const double>& moving,
                                                     const kxLargeRegistrationOptions& options);

// The translation between two images of the same size, any size, with the
// convention of kfPhaseCorrelate (moving(x + dx, y + dy) = reference(x, y)).
//
// Images up to 2048 in a side are correlated whole (kfPhaseCorrelate).
// Larger ones are first reduced by the smallest whole factor r that brings
// them within 2048 (each r x r block averaged) and correlated there, which
// gives the shift to about r pixels; then a window of `options.window`
// pixels in the middle of the part both images share is correlated at full
// resolution, the moving image's window displaced by the coarse shift, and
// the residual gives the sub-pixel shift. The confidence is the window's.
// @throws kxFrequencyDefs::InvalidSize for images of different or empty
//         sizes, or when the images share less than a 64 x 64 window;
//         kxFrequencyDefs::InvalidArgument for bad options.
template <typename T>
kxPhaseCorrelation kfPhaseCorrelateLarge(const kxImageView<T>& reference, const kxImageView<T>& moving,
                                         const kxLargeRegistrationOptions& options = kxLargeRegistrationOptions())
{
    using C = kxImageView<const std::remove_const_t<T>>;
    return kf_PhaseCorrelateLarge(C(reference), C(moving), options);
}
