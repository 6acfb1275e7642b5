#pragma once
// kxfreq: frequency data and transforms.
//
// kxFrequencyBuffer holds the 2-D discrete Fourier transform of a grey image
// as single-precision complex numbers on a power-of-two grid (the image size
// rounded up, at most 2048 in each direction). Failures are reported by the
// exception classes of kxFrequencyDefs.
#include <kx/core/core.h>
#include <kx/kxfreq_export.h>

#include <vector>

class kxFrequencyBuffer;
class kxFrequencyFilter;

// The largest side a transform takes: a frequency buffer's grid is at most
// kfMaxTransformSide x kfMaxTransformSide.
constexpr long kfMaxTransformSide = 2048;

// The grid side a transform uses for an image side: the smallest power of two
// not below `side` (1 for sides below 1). Sides above kfMaxTransformSide give
// their power of two too; the buffer refuses them.
KXFREQ_API long kfPaddedSize(long side);
struct kx_FrequencyBufferAccess;

// A scope for the library's error classes and display mappings.
class KXFREQ_API kxFrequencyDefs {
public:
    // How kfFrequencyMapImage turns double values into grey levels. The
    // underlying type is fixed so that any int is a valid value: one outside
    // 0..4 gives an image of the right size whose pixels are not written.
    enum FrequencyMapping : int {
        eMapClip = 0,         // the value itself, clamped to 0..255
        eMapLinear = 1,       // linear stretch of the data's own range
        eMapLinearRange = 2,  // linear stretch of the caller's range, clamped
        eMapLog = 3,          // logarithmic stretch of the data's own range
        eMapPhase = 4         // radians to grey levels, 40.58451 per radian
    };

    // Base of the library's exceptions; never thrown itself.
    class KXFREQ_API Errors : public kxExceptionWithString {
    public:
        // Copyable, like every exception.
        Errors(const Errors&) = default;
        Errors& operator=(const Errors&) = default;
        ~Errors() override;

        long errorNumber() const override = 0;
        // For an exception held on the heap: frees it and throws a copy of it
        // as its own dynamic type.
        virtual void suicideAndRethrow() = 0;

    protected:
        explicit Errors(const char* message = nullptr);
        void dispatchSerialize(kxArchive& archive) override;
        void serialize_(kxArchive& archive, unsigned char version);
    };

#define KX_FREQUENCY_ERROR_CLASS(Name)                                  \
    class KXFREQ_API Name : public Errors {                             \
    public:                                                             \
        explicit Name(const char* message = nullptr);                   \
        Name(const Name&) = default;                                    \
        Name& operator=(const Name&) = default;                         \
        ~Name() override;                                               \
        long errorNumber() const override;                              \
        void suicideAndRethrow() override;                              \
                                                                        \
    protected:                                                          \
        void dispatchSerialize(kxArchive& archive) override;            \
        void serialize_(kxArchive& archive, unsigned char version);     \
                                                                        \
    private:                                                            \
        static kxPersistent* make();                                    \
        static kx_Instantiator sExemplar;                               \
    };

    KX_FREQUENCY_ERROR_CLASS(InvalidArgument)  // 0x10006300
    KX_FREQUENCY_ERROR_CLASS(Uninitialized)    // 0x10006301
    KX_FREQUENCY_ERROR_CLASS(InvalidSize)      // 0x10006302
    KX_FREQUENCY_ERROR_CLASS(UnboundWindow)    // 0x10006303
    KX_FREQUENCY_ERROR_CLASS(InvalidBuffer)    // 0x10006304
    KX_FREQUENCY_ERROR_CLASS(BadCoord)         // 0x10006305
#undef KX_FREQUENCY_ERROR_CLASS
};

// A complex spectrum on a padded power-of-two grid.
//
// Storage is row-major, each element (real, imaginary) as two adjacent floats,
// with the zero frequency at element (0, 0) in the usual unshifted order: index
// k on an axis of padded size N stands for frequency k below N/2 and k - N from
// N/2 on. The element accessors address either storage indices
// (centered == false) or signed frequencies (centered == true):
//
//     storage x:   0   1   2   3   4   5   6   7        (padded size 8)
//     centered x:  0   1   2   3  -4  -3  -2  -1        valid range -4..3
//
// width() and height() are the padded sizes. Masked bands and the centred row
// index: storage row r of a grid of height H has centred index r + H/2 when
// r < H/2 and r - H/2 otherwise, so the zero-frequency row has index H/2.
//
// The centered argument has no default: every call says which addressing it
// means.
class KXFREQ_API kxFrequencyBuffer {
public:
    // No data (element access throws Uninitialized); zeros for an image of
    // width x height, padded to powers of two; a copy of src.
    kxFrequencyBuffer();
    kxFrequencyBuffer(long width, long height);
    kxFrequencyBuffer(const kxFrequencyBuffer& src);
    // The low frequencies of src: a frequency-domain reduction to width x height.
    kxFrequencyBuffer(const kxFrequencyBuffer& src, long width, long height);
    // The complex image real + i imaginary as it is, not transformed, padded
    // with zeros (both images of the same size and offset).
    kxFrequencyBuffer(const kxPelBuffer_const<double>& real, const kxPelBuffer_const<double>& imaginary);
    ~kxFrequencyBuffer();

    // Copies everything, data included; a source without data leaves this
    // buffer without data.
    kxFrequencyBuffer& operator=(const kxFrequencyBuffer& src);
    // Floats compare different only when one is less or greater than the
    // other: +0 equals -0 and a NaN equals anything. The transform is ignored.
    bool operator==(const kxFrequencyBuffer& other) const;
    bool operator!=(const kxFrequencyBuffer& other) const { return !(*this == other); }

    // The padded size; Uninitialized without data.
    long width() const;
    long height() const;

    // Element (x, y), whole or one part: storage indices, or signed frequencies
    // when centered. Reads give doubles, writes round to float. They throw
    // Uninitialized without data, InvalidBuffer after an in-place inverse and
    // BadCoord outside the grid.
    kxPair<double> get(long x, long y, bool centered) const;
    double getReal(long x, long y, bool centered) const;
    double getImaginary(long x, long y, bool centered) const;
    void put(long x, long y, kxPair<double> value, bool centered);
    void putReal(long x, long y, double value, bool centered);
    void putImaginary(long x, long y, double value, bool centered);

    // One component of every element as a double image of the padded size
    // (padding included), in storage order or centred with the zero frequency
    // at pixel (width()/2, height()/2). The magnitude is computed in single
    // precision; the phase is atan2 in double, in (-pi, pi].
    kxPelBuffer<double> getRealImage(bool centered) const;
    kxPelBuffer<double> getImaginaryImage(bool centered) const;
    kxPelBuffer<double> getMagnitudeImage(bool centered) const;
    kxPelBuffer<double> getPhaseImage(bool centered) const;

    // The store and state of the buffer, for code that hands the elements to
    // another library (numpy, an FFT of its own) without a copy. Element
    // (x, y) in storage order is data[y * rowStride + 2 * x] (real) and the
    // float after it (imaginary). data is null when the buffer has no data,
    // and otherwise starts at a 64-byte boundary.
    //
    // The pointer stays valid until the buffer is given another padded size,
    // is loaded from an archive or is destroyed: a transform, copy or
    // cancelled transform into a buffer of the same padded size keeps the
    // address (the data may then be absent or changed, never moved).
    template <typename Float>
    struct ElementView {
        Float* data = nullptr;         // (real, imaginary) float pairs; null without data
        long width = 0;                // padded width, elements
        long height = 0;               // padded height, rows
        long rowStride = 0;            // floats from one row to the next
        long requestedWidth = 0;       // width of the image the data came from
        long requestedHeight = 0;      // height of the image the data came from
        bool inverseComputed = false;  // the store holds an in-place inverse's spatial result
        bool masked = false;           // a filter left data only in rows bandFirst..bandLast
        long bandFirst = 0;            // first row of the band, centred index
        long bandLast = 0;             // last row of the band, centred index, inclusive
    };
    // The view of this buffer's store and state, with writable elements.
    ElementView<float> elements();
    // The same view with read-only elements.
    ElementView<const float> elements() const;

private:
    friend class kxFrequencyFilter;
    friend struct kx_FrequencyBufferAccess;
    friend KXFREQ_API kxArchive& operator||(kxArchive& archive, kxFrequencyBuffer& buffer);

    void setAndAllocate(long width, long height);
    void allocateGrid(long paddedWidth, long paddedHeight);
    float* data() const { return data_; }
    void masked(long value) { masked_ = value; }
    long masked() const { return masked_; }
    void maskedMiny(long value) { maskedMiny_ = value; }
    long maskedMiny() const { return maskedMiny_; }
    void maskedMaxy(long value) { maskedMaxy_ = value; }
    long maskedMaxy() const { return maskedMaxy_; }

    // Float index of element (x, y), after the access checks.
    long elementIndex(long x, long y, bool centered) const;
    void pointAtStore();
    template <typename Float>
    ElementView<Float> elementView() const;

    long paddedWidth_ = 0;
    long paddedHeight_ = 0;
    long requestedWidth_ = 0;
    long requestedHeight_ = 0;
    long masked_ = 0;
    long maskedMiny_ = 0;
    long maskedMaxy_ = 0;
    kx2XformCache transform_;
    kxPair<long> offset_;
    std::vector<float> store_;
    float* data_ = nullptr;
    bool inverseComputed_ = false;
};

// Buffer persistence: a version byte (1), the sizes, band, flag, transform,
// offset and the data. See filt/fft/persistence.cpp for the format.
KXFREQ_API kxArchive& operator||(kxArchive& archive, kxFrequencyBuffer& buffer);

// ---------------------------------------------------------------------------
// Forward transforms
//
// The image size is kept as the buffer's requested size and padded to powers
// of two; the pixels are converted to float, the padding is zero, and the
// spectrum is unscaled with the zero frequency at element (0, 0). The image's
// offset and client transform are recorded in the buffer. An image with a
// non-zero offset gives the same spectrum as its pixels at (0, 0).

// Non-template workers behind kfForwardFFT.
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<unsigned char>& image, kxFrequencyBuffer& result);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<unsigned short>& image, kxFrequencyBuffer& result);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<double>& image, kxFrequencyBuffer& result);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<unsigned char>& realImage,
                              const kxPelBuffer_const<unsigned char>& imagImage, kxFrequencyBuffer& result);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<unsigned short>& realImage,
                              const kxPelBuffer_const<unsigned short>& imagImage, kxFrequencyBuffer& result);
KXFREQ_API void kf_ForwardFFT(const kxPelBuffer_const<double>& realImage, const kxPelBuffer_const<double>& imagImage,
                              kxFrequencyBuffer& result);

// One real image (T = unsigned char, unsigned short or double).
template <typename T>
void kfForwardFFT(const kxPelBuffer_const<T>& image, kxFrequencyBuffer& result)
{
    kf_ForwardFFT(image, result);
}

// A real and an imaginary image of the same size and offset.
template <typename T>
void kfForwardFFT(const kxPelBuffer_const<T>& realImage, const kxPelBuffer_const<T>& imagImage,
                  kxFrequencyBuffer& result)
{
    kf_ForwardFFT(realImage, imagImage, result);
}

// A buffer whose store holds spatial data (the output of an in-place
// inverse) transformed again, padding included.
KXFREQ_API void kfForwardFFT(const kxFrequencyBuffer& source, kxFrequencyBuffer& result);

// ---------------------------------------------------------------------------
// Inverse transforms
//
// The result is the magnitude of the inverse divided by width x height of the
// grid, cropped to the requested size, with the recorded offset and client
// transform. 8- and 16-bit pixels keep the low bits of the rounded value (no
// clamping); with `scale` the image's own range of magnitudes is stretched to
// the full pixel range. A bound destination image receives only the pixels
// that overlap it; an unbound one becomes the result.
//
// `inPlace` lets the transform overwrite the buffer's store instead of a
// copy; the buffer then holds the spatial result, its element accessors
// refuse access, and later inverse transforms of it reuse that result. The
// forms taking a const buffer never change it.
//
// With a non-zero recorded offset the result is laid down with the periodic
// copy before it takes that offset back; the 8-bit magnitude-with-angle path
// starts that copy from offset (0, 0) and so returns the pixels in place,
// the other paths return them shifted by the offset. Kept for compatibility.
//
// Stopping (forward and inverse transforms alike): when kxAttention::check()
// throws during a transform (or anything else does), every frequency buffer
// the call writes - a forward transform's result, the buffer of an in-place
// inverse, a buffer-to-buffer inverse's destination - is left not
// initialized, so that every read of it throws Uninitialized; a destination
// image the call would have bound stays unbound; a destination image that
// was bound keeps its binding, size and transform (its pixels are
// unspecified). Sources - const buffers, buffers of inverses that are not in
// place, input images - are never changed.

KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image,
                              kxPelBuffer<double>* angle, bool scale, bool inPlace);
KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image,
                              kxPelBuffer<double>* angle, bool scale, bool inPlace);
KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, kxPelBuffer<double>* angle,
                              bool scale, bool inPlace);
KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image,
                              kxPelBuffer<unsigned char>& quadrant, bool scale, bool inPlace);
KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image,
                              kxPelBuffer<unsigned char>& quadrant, bool scale, bool inPlace);
KXFREQ_API void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& image,
                              kxPelBuffer<unsigned char>& quadrant, bool scale, bool inPlace);
// The same, reading the buffer only.
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image,
                              kxPelBuffer<double>* angle, bool scale);
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image,
                              kxPelBuffer<double>* angle, bool scale);
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& image,
                              kxPelBuffer<double>* angle, bool scale);
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image,
                              kxPelBuffer<unsigned char>& quadrant, bool scale);
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image,
                              kxPelBuffer<unsigned char>& quadrant, bool scale);
KXFREQ_API void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& image,
                              kxPelBuffer<unsigned char>& quadrant, bool scale);

// Per element of a buffer holding spatial data: atan2f(im, re) in radians.
KXFREQ_API void kf_ComputeAngleImage(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& angle);
// Per element: 1 when the real part is negative, plus 2 when the imaginary
// part is (-0 counts as not negative).
KXFREQ_API void kf_ComputeQuadrantImage(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& quadrant);

template <typename T>
void kfInverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, bool scale, bool inPlace)
{
    kf_InverseFFT(buffer, image, static_cast<kxPelBuffer<double>*>(nullptr), scale, inPlace);
}

template <typename T>
void kfInverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, bool scale)
{
    kf_InverseFFT(buffer, image, static_cast<kxPelBuffer<double>*>(nullptr), scale);
}

template <typename T>
void kfInverseFFTAngle(kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, kxPelBuffer<double>& angle, bool scale,
                       bool inPlace)
{
    kf_InverseFFT(buffer, image, &angle, scale, inPlace);
}

template <typename T>
void kfInverseFFTAngle(const kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, kxPelBuffer<double>& angle,
                       bool scale)
{
    kf_InverseFFT(buffer, image, &angle, scale);
}

template <typename T>
void kfInverseFFTQuadrant(kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, kxPelBuffer<unsigned char>& quadrant,
                          bool scale, bool inPlace)
{
    kf_InverseFFT(buffer, image, quadrant, scale, inPlace);
}

template <typename T>
void kfInverseFFTQuadrant(const kxFrequencyBuffer& buffer, kxPelBuffer<T>& image,
                          kxPelBuffer<unsigned char>& quadrant, bool scale)
{
    kf_InverseFFT(buffer, image, quadrant, scale);
}

// Real and imaginary parts as double images, scaled, no magnitude.
KXFREQ_API void kfInverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& real, kxPelBuffer<double>& imag,
                             bool inPlace);
KXFREQ_API void kfInverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& real,
                             kxPelBuffer<double>& imag);

// The unscaled inverse over the whole padded grid into another buffer, whose
// masked and inverse-computed flags are cleared so that it stays readable.
KXFREQ_API void kfInverseFFT(kxFrequencyBuffer& src, kxFrequencyBuffer& dst, bool inPlace);
KXFREQ_API void kfInverseFFT(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst);

// ---------------------------------------------------------------------------
// Frequency arithmetic, element by element over the whole padded store.
// Buffers combine when their padded sizes agree. Any argument may be the same
// object as another. Checks come before any change.

// dst = dst x src (complex product)
KXFREQ_API void kfFrequencyMultiply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst);
// result = a x b; result carries a's fields, or keeps b's when it is b.
KXFREQ_API void kfFrequencyMultiply(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b,
                                    kxFrequencyBuffer& result);
KXFREQ_API void kfFrequencyAdd(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst);
KXFREQ_API void kfFrequencyAdd(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b, kxFrequencyBuffer& result);
// dst = dst - src
KXFREQ_API void kfFrequencySubtract(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst);
// result = a - b, always with a's fields (also when result is b).
KXFREQ_API void kfFrequencySubtract(const kxFrequencyBuffer& a, const kxFrequencyBuffer& b,
                                    kxFrequencyBuffer& result);
KXFREQ_API void kfFrequencyConjugate(kxFrequencyBuffer& buffer);
KXFREQ_API void kfFrequencyConjugate(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst);

// ---------------------------------------------------------------------------
// Display mapping: a double image (usually a component image) to an 8-bit
// image of the same size with the source's client transform. `low` and `high`
// are read by eMapLinearRange only. Results outside 0..255 keep their low 8
// bits unless the mapping clamps (eMapClip, eMapLinearRange).
KXFREQ_API kxPelBuffer<unsigned char> kfFrequencyMapImage(const kxPelBuffer_const<double>& src,
                                                          kxFrequencyDefs::FrequencyMapping mapping,
                                                          double low = 0.0, double high = 0.0);
