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
struct kx_FrequencyBufferAccess;

// A scope for the library's error classes and display mappings.
class KXFREQ_API kxFrequencyDefs {
public:
    // How kfFrequencyMapImage turns double values into grey levels.
    enum FrequencyMapping {
        eMapClip = 0,         // the value itself, clamped to 0..255
        eMapLinear = 1,       // linear stretch of the data's own range
        eMapLinearRange = 2,  // linear stretch of the caller's range, clamped
        eMapLog = 3,          // logarithmic stretch of the data's own range
        eMapPhase = 4         // radians to grey levels, 40.58451 per radian
    };

    // Base of the library's exceptions; never thrown itself.
    class KXFREQ_API Errors : public kxExceptionWithString {
    public:
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
    kxFrequencyBuffer();
    kxFrequencyBuffer(long width, long height);
    kxFrequencyBuffer(const kxFrequencyBuffer& src);
    // The low frequencies of src: a frequency-domain reduction to width x height.
    kxFrequencyBuffer(const kxFrequencyBuffer& src, long width, long height);
    kxFrequencyBuffer(const kxPelBuffer_const<double>& real, const kxPelBuffer_const<double>& imaginary);
    ~kxFrequencyBuffer();

    kxFrequencyBuffer& operator=(const kxFrequencyBuffer& src);
    // Floats compare different only when one is less or greater than the
    // other: +0 equals -0 and a NaN equals anything. The transform is ignored.
    bool operator==(const kxFrequencyBuffer& other) const;
    bool operator!=(const kxFrequencyBuffer& other) const { return !(*this == other); }

    long width() const;
    long height() const;

    kxPair<double> get(long x, long y, bool centered) const;
    double getReal(long x, long y, bool centered) const;
    double getImaginary(long x, long y, bool centered) const;
    void put(long x, long y, kxPair<double> value, bool centered);
    void putReal(long x, long y, double value, bool centered);
    void putImaginary(long x, long y, double value, bool centered);

private:
    friend class kxFrequencyFilter;
    friend struct kx_FrequencyBufferAccess;
    friend KXFREQ_API kxArchive& operator||(kxArchive& archive, kxFrequencyBuffer& buffer);

    void setAndAllocate(long width, long height);
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
