#pragma once
// kxfreq: frequency-domain filters.
//
// A filter holds a transfer function and multiplies a kxFrequencyBuffer by
// it, in place or from a source into a destination buffer. Filters are
// persistent objects: kxArchive::storeObject() writes one by its dynamic type
// and loadObject() rebuilds it. Both apply() forms are const and write only
// the buffers they are given.
//
// Every filter checks, in this order: the buffer has data ("FrequencyBuffer
// has not been initialized"), the filter has a transfer function
// ("FrequencyFilter has not been initialized"), both Uninitialized; then the
// padded sizes (InvalidSize, "Size of frequency buffer does not match size of
// filter.").
#include <kx/fft.h>

#include <vector>

class KXFREQ_API kxFrequencyFilter : public virtual kxPersistent, public virtual kxRepBase {
public:
    kxFrequencyFilter();
    ~kxFrequencyFilter() override;

    // A new heap copy of the filter; the caller owns it.
    virtual kxFrequencyFilter* clone() const = 0;
    virtual bool isInitialized() const;  // whether it has a transfer function
    virtual void apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const = 0;  // src filtered into dst
    virtual void apply(kxFrequencyBuffer& buffer) const = 0;  // filtered in place

protected:
    // A copy is a new persistent object and starts uninitialised.
    kxFrequencyFilter(const kxFrequencyFilter& other);
    // Copies the initialised flag only.
    kxFrequencyFilter& operator=(const kxFrequencyFilter& other);

    void dispatchSerialize(kxArchive& archive) override;
    // The base's share: a version byte, the kxPersistent part, the flag.
    virtual void serialize_(kxArchive& archive, unsigned char version);

    void setInitialized(bool value) { initialized_ = value; }

    // Access to a buffer's private parts for the derived filters.
    static void setAndAllocateFrequencyBuffer(kxFrequencyBuffer& buffer, long width, long height);
    // The band, in centred row indices, outside which the result is zero.
    static void maskFrequencyBuffer(kxFrequencyBuffer& buffer, bool masked, long firstRow, long lastRow);
    static float* getFrequencyBufferData(kxFrequencyBuffer& buffer);
    static const float* getFrequencyBufferData(const kxFrequencyBuffer& buffer);

private:
    bool initialized_;
};

// Internal state of the two Gabor filters; not part of the interface.
struct kx_GaborState {
    long supportWidth = 0;
    long supportHeight = 0;
    kxPair<double> sigma;
    kxPair<double> plateau;
    kxRadian angle;
    double frequency = 0.0;
    kxPair<long> size;
    long dcRadius = 0;
    std::vector<float> store;
    float* table = nullptr;   // 16-byte aligned in store; null: no transfer function
};

// Internal state of the band-pass and band-reject filters.
struct kx_RadialState {
    long supportWidth = 0;
    long oversampling = 0;
    long dcRadius = 0;
    double frequency = 0.0;
    double sigma = 0.0;
    double plateau = 0.0;
    kxPair<long> size;
    std::vector<float> store;
    float* profile = nullptr;
};

// An oriented band-pass filter: a Gaussian lobe, optionally with a flat top
// (the plateau), centred `frequency` cycles per pixel from the zero frequency
// in direction `angle`; sigma and plateau along (x) and across (y) that
// direction, in cycles per pixel. Frequencies outside the lobe's support are
// zeroed, and a square of (2 dcRemovalRadius - 1) frequencies around the zero
// frequency is cleared (0: nothing cleared). The filter stores only its
// support, not a table of the buffer's size.
class KXFREQ_API kxFrequencyFilterGabor : public kxFrequencyFilter {
public:
    kxFrequencyFilterGabor();  // uninitialised, or as set(); copies
    kxFrequencyFilterGabor(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                           double frequency, const kxPair<long>& size, long dcRemovalRadius);
    kxFrequencyFilterGabor(const kxFrequencyFilterGabor& other);
    kxFrequencyFilterGabor& operator=(const kxFrequencyFilterGabor& other);
    ~kxFrequencyFilterGabor() override;

    kxFrequencyFilter* clone() const override;
    bool operator==(const kxFrequencyFilterGabor& other) const;  // same parameters and gains

    // Gives the filter its parameters (also an uninitialised one).
    void set(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle, double frequency,
             const kxPair<long>& size, long dcRemovalRadius);

    // Setters rebuild the table only when the value changes; on an
    // uninitialised filter they throw (use set()).
    void sigma(const kxPair<double>& value);
    void plateau(const kxPair<double>& value);
    void angle(kxRadian value);
    void frequency(double value);
    void size(const kxPair<long>& value);
    void dcRemovalRadius(long value);

    kxPair<double> sigma() const;  // the parameters; the table's size
    kxPair<double> plateau() const;
    kxRadian angle() const;
    double frequency() const;
    kxPair<long> size() const;
    long dcRemovalRadius() const;
    long supportWidth() const;
    long supportHeight() const;

    // The gain table, support height rows of support width gains (null while
    // uninitialised).
    float* data() const { return state_.table; }

    void apply(kxFrequencyBuffer& buffer) const override;
    void apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const override;

protected:
    void dispatchSerialize(kxArchive& archive) override;
    void serialize_(kxArchive& archive, unsigned char version) override;

private:
    void create(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle, double frequency,
                const kxPair<long>& size, long dcRemovalRadius);
    static kxPersistent* make();
    static kx_Instantiator sExemplar;

    kx_GaborState state_;
};

// The complement of the Gabor filter: frequencies near the lobe are
// suppressed (gain 1 - Gabor gain), all others pass unchanged, and a square of
// (2 dcProtectionRadius - 1) frequencies around the zero frequency keeps its
// values.
class KXFREQ_API kxFrequencyFilterGaborReject : public kxFrequencyFilter {
public:
    kxFrequencyFilterGaborReject();  // uninitialised, or as set(); copies
    kxFrequencyFilterGaborReject(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                                 double frequency, const kxPair<long>& size, long dcProtectionRadius);
    kxFrequencyFilterGaborReject(const kxFrequencyFilterGaborReject& other);
    kxFrequencyFilterGaborReject& operator=(const kxFrequencyFilterGaborReject& other);
    ~kxFrequencyFilterGaborReject() override;

    kxFrequencyFilter* clone() const override;
    bool operator==(const kxFrequencyFilterGaborReject& other) const;  // same parameters and gains

    void set(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle, double frequency,  // new parameters
             const kxPair<long>& size, long dcProtectionRadius);

    void sigma(const kxPair<double>& value);  // as in kxFrequencyFilterGabor
    void plateau(const kxPair<double>& value);
    void angle(kxRadian value);
    void frequency(double value);
    void size(const kxPair<long>& value);
    void dcProtectionRadius(long value);

    kxPair<double> sigma() const;  // the parameters; the table's size
    kxPair<double> plateau() const;
    kxRadian angle() const;
    double frequency() const;
    kxPair<long> size() const;
    long dcProtectionRadius() const;
    long supportWidth() const;
    long supportHeight() const;

    void apply(kxFrequencyBuffer& buffer) const override;
    void apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const override;

protected:
    float* data() const { return state_.table; }
    void dispatchSerialize(kxArchive& archive) override;
    void serialize_(kxArchive& archive, unsigned char version) override;

private:
    void create(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle, double frequency,
                const kxPair<long>& size, long dcProtectionRadius);
    static kxPersistent* make();
    static kx_Instantiator sExemplar;

    kx_GaborState state_;
};

// A radial band-pass filter: gain 1 on a ring of half-width `plateau` around
// the radial frequency `frequency` (cycles per pixel), Gaussian flanks of
// standard deviation `sigma` on both sides, zero far from the ring. Distances
// are in horizontal frequency bins with the vertical axis rescaled by the
// aspect ratio, so the ring is a circle in cycles per pixel. A square of
// (2 dcRemovalRadius - 1) frequencies around the zero frequency is cleared.
// The filter stores a one-dimensional profile oversampled 32 times.
class KXFREQ_API kxFrequencyFilterBandPass : public kxFrequencyFilter {
public:
    kxFrequencyFilterBandPass();  // uninitialised, or as set(); copies
    kxFrequencyFilterBandPass(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRemovalRadius);
    kxFrequencyFilterBandPass(const kxFrequencyFilterBandPass& other);
    kxFrequencyFilterBandPass& operator=(const kxFrequencyFilterBandPass& other);
    ~kxFrequencyFilterBandPass() override;

    kxFrequencyFilter* clone() const override;
    bool operator==(const kxFrequencyFilterBandPass& other) const;  // same parameters and gains

    void set(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRemovalRadius);  // new parameters

    void sigma(double value);  // setters: rebuild on change; throw if uninitialised
    void plateau(double value);
    void frequency(double value);
    void size(const kxPair<long>& value);
    void dcRemovalRadius(long value);

    double sigma() const;  // the parameters
    double plateau() const;
    double frequency() const;
    kxPair<long> size() const;
    long dcRemovalRadius() const;
    // Length of the radial profile in frequency bins.
    long supportWidth() const;

    void apply(kxFrequencyBuffer& buffer) const override;
    void apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const override;

protected:
    void dispatchSerialize(kxArchive& archive) override;
    void serialize_(kxArchive& archive, unsigned char version) override;

private:
    void create(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRemovalRadius);
    static kxPersistent* make();
    static kx_Instantiator sExemplar;

    kx_RadialState state_;
};

// The complement of the band-pass filter: frequencies on the ring are
// suppressed (gain 1 - band-pass gain), every other frequency is left as it
// is, and a square of (2 dcProtectionRadius - 1) frequencies around the zero
// frequency keeps its values.
class KXFREQ_API kxFrequencyFilterBandReject : public kxFrequencyFilter {
public:
    kxFrequencyFilterBandReject();  // uninitialised, or as set(); copies
    kxFrequencyFilterBandReject(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcProtectionRadius);
    kxFrequencyFilterBandReject(const kxFrequencyFilterBandReject& other);
    kxFrequencyFilterBandReject& operator=(const kxFrequencyFilterBandReject& other);
    ~kxFrequencyFilterBandReject() override;

    kxFrequencyFilter* clone() const override;
    bool operator==(const kxFrequencyFilterBandReject& other) const;  // same parameters and gains

    void set(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcProtectionRadius);  // new parameters

    void sigma(double value);  // setters: rebuild on change; throw if uninitialised
    void plateau(double value);
    void frequency(double value);
    void size(const kxPair<long>& value);
    void dcProtectionRadius(long value);

    double sigma() const;  // the parameters
    double plateau() const;
    double frequency() const;
    kxPair<long> size() const;
    long dcProtectionRadius() const;
    // Length of the radial profile in frequency bins.
    long supportWidth() const;

    void apply(kxFrequencyBuffer& buffer) const override;
    void apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const override;

protected:
    void dispatchSerialize(kxArchive& archive) override;
    void serialize_(kxArchive& archive, unsigned char version) override;

private:
    void create(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcProtectionRadius);
    static kxPersistent* make();
    static kx_Instantiator sExemplar;

    kx_RadialState state_;
};

// A filter whose transfer function is a whole frequency buffer given by the
// caller: apply() multiplies element by element. An empty filter reports
// "FrequencyBuffer has not been initialized".
class KXFREQ_API kxFrequencyFilterImage : public kxFrequencyFilter {
public:
    kxFrequencyFilterImage();  // empty, or with a copy of image; copies
    explicit kxFrequencyFilterImage(const kxFrequencyBuffer& image);
    kxFrequencyFilterImage(const kxFrequencyFilterImage& other);
    kxFrequencyFilterImage& operator=(const kxFrequencyFilterImage& other);
    ~kxFrequencyFilterImage() override;

    bool operator==(const kxFrequencyFilterImage& other) const;  // same transfer buffer
    kxFrequencyFilter* clone() const override;

    void setImage(const kxFrequencyBuffer& image);  // a copy of image becomes the transfer function
    // The padded size of the transfer buffer.
    long supportWidth() const;
    long supportHeight() const;

    void apply(kxFrequencyBuffer& buffer) const override;
    void apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const override;

protected:
    void dispatchSerialize(kxArchive& archive) override;
    void serialize_(kxArchive& archive, unsigned char version) override;

private:
    void create(const kxFrequencyBuffer& image);
    void checkApplicable(const kxFrequencyBuffer& buffer) const;
    static kxPersistent* make();
    static kx_Instantiator sExemplar;

    kxFrequencyBuffer transfer_;
};
