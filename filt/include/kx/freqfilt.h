#pragma once
// kxfreq: frequency-domain filters.
//
// A filter holds a transfer function and multiplies a kxFrequencyBuffer by
// it, in place or from a source into a destination buffer. Filters are
// persistent objects: kxArchive::storeObject() writes one by its dynamic type
// and loadObject() rebuilds it. Both apply() forms are const and write only
// the buffers they are given.
//
// Every filter checks, in this order: the buffer has data, the filter has a
// transfer function (both Uninitialized, with the buffer's and the filter's
// message respectively); then the padded sizes (InvalidSize).
#include <kx/fft.h>

#include <cstddef>
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
    // Pass filters keep what their lobe or ring selects and clear the rest;
    // reject filters attenuate what it selects and keep the rest.
    enum Role { ePass, eReject };

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
    // Leaves the buffer not initialized: what a filter does to a buffer it
    // was writing when an exception (a cancellation) stopped it, so that a
    // half-filtered spectrum never reads as a result.
    static void invalidateFrequencyBuffer(kxFrequencyBuffer& buffer);

    // Runs `write`, which fills `buffer`; if an exception (a cancellation)
    // stops it, the buffer is left not initialized.
    template <typename Write>
    static void writeOrInvalidate(kxFrequencyBuffer& buffer, Write write)
    {
        try {
            write();
        } catch (...) {
            invalidateFrequencyBuffer(buffer);
            throw;
        }
    }

    // The load of a filter is all or nothing: serialize_ runs the whole
    // stream in this guard, which puts the initialised flag back if the load
    // fails after the base's share has been read.
    template <typename Stream>
    void loadAllOrNothing(kxArchive& archive, Stream stream)
    {
        const bool before = initialized_;
        try {
            stream();
        } catch (...) {
            if (archive.isLoading())
                initialized_ = before;
            throw;
        }
    }

private:
    bool initialized_;
};

// The parameters of the two Gabor filters, as set() takes them; internal.
struct kx_GaborParameters {
    kxPair<double> sigma;
    kxPair<double> plateau;
    kxRadian angle;
    double frequency = 0.0;
    kxPair<long> size;
    long dcRadius = 0;
};

// The parameters of the band-pass and band-reject filters; internal.
struct kx_RadialParameters {
    double sigma = 0.0;
    double plateau = 0.0;
    double frequency = 0.0;
    kxPair<long> size;
    long dcRadius = 0;
};

// The gains of a filter with a table (a Gabor table, a radial profile);
// internal, not exported. The gains start at a 16-byte aligned address in
// the store; an empty table (data() null): no transfer function.
class kx_GainTable {
public:
    kx_GainTable() = default;
    // `count` gains, zero, ready to be filled and then committed.
    explicit kx_GainTable(std::size_t count);
    // A copy has its own store holding the same gains.
    kx_GainTable(const kx_GainTable& other);
    kx_GainTable& operator=(const kx_GainTable& other);
    ~kx_GainTable();

    // The gains (null for an empty table): read-only through a const table.
    const float* data() const { return gains_; }
    // The gains, writable: how a table built aside is filled.
    float* data() { return gains_; }
    // How many gains the table holds.
    std::size_t count() const { return count_; }

    // Takes the gains of `built`: a table of the same count is overwritten
    // where it is, so its address does not change; any other takes built's
    // store.
    void commit(kx_GainTable& built);
    // No gains any more; the store is kept for the next commit or copy.
    void drop() { gains_ = nullptr; }
    // The gains compare like the setters' doubles: a NaN equals anything.
    bool sameGains(const kx_GainTable& other) const;
    // The gains, as an archive stores them (none for an empty table).
    std::vector<float> stored() const;
    // From an archive: empty without a table; otherwise `expected` gains
    // from the start of `loaded`, which may hold more (they are kept, zero
    // padded, but not used). An archive is untrusted: a table smaller than
    // `expected` gains, or an expected count of zero, is refused with
    // kxArchive::Error.
    void load(bool hasTable, std::size_t expected, const std::vector<float>& loaded);

private:
    // Resizes the store for `count` gains and points at the aligned start.
    void allocate(std::size_t count);

    std::vector<float> store_;
    float* gains_ = nullptr;
    std::size_t count_ = 0;
};

// What every filter with a table of gains shares: its role, and the two
// apply() forms around a walk of the buffer. Use the concrete classes below.
//
// apply() checks, in order, that the buffer has data, that the filter has a
// table, the sizes, then (for a DC radius other than 0) that the square
// around the zero frequency can be addressed; all before anything changes.
// If the walk is stopped (a cancellation), the buffer it was writing is left
// not initialized.
class KXFREQ_API kx_TableFilter : public kxFrequencyFilter {
public:
    ~kx_TableFilter() override;

    void apply(kxFrequencyBuffer& buffer) const override;
    void apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const override;

protected:
    explicit kx_TableFilter(Role role) : role_(role) {}
    // A copy starts without a table; the body's assignment copies it.
    kx_TableFilter(const kx_TableFilter& other);
    kx_TableFilter& operator=(const kx_TableFilter& other);
    Role role() const { return role_; }

    // The gains; an empty table: no transfer function.
    kx_GainTable& table() { return table_; }
    const kx_GainTable& table() const { return table_; }
    // The first step of a body's assignment: from a filter with a table, the
    // flag and the gains are copied and the body copies its parameters (true
    // is returned); from one without, only the gains are dropped and the
    // parameters and the flag keep their values.
    bool assignTable(const kx_TableFilter& other);
    // The comparison of two filters of the same class: the flags, whether
    // both have a table, then the body's parameters and the gains.
    bool equals(const kx_TableFilter& other) const;

private:
    // The body's parameters and table sizes against those of `other`, a
    // filter of the same class with a table.
    virtual bool sameParameters(const kx_TableFilter& other) const = 0;
    // The padded size the table was made for, and the DC radius.
    virtual kxPair<long> gainsSize() const = 0;
    virtual long gainsDcRadius() const = 0;
    // Multiplies the elements the table covers by their gains, reading `in`
    // (which may be out's own data) and writing `out`; what happens to the
    // others, and the band recorded in `out`, depend on the role.
    virtual void walk(const float* in, kxFrequencyBuffer& out) const = 0;
    void applyInto(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst, bool sizeDestination) const;

    Role role_;
    kx_GainTable table_;
};

// The body the Gabor filter and the Gabor reject filter share: parameters,
// gain table, walk and persistence. Use the two classes below; this one only
// carries their common interface.
//
// Sigma and plateau are along (x) and across (y) the direction `angle`, in
// cycles per pixel; `frequency` is the lobe's distance from the zero
// frequency, also in cycles per pixel. The lobe is one-sided: it sits at
// `angle` only, not also at angle + pi.
class KXFREQ_API kx_GaborFilter : public kx_TableFilter {
public:
    ~kx_GaborFilter() override;

    // Gives the filter its parameters (also an uninitialised one).
    void set(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle, double frequency,
             const kxPair<long>& size, long dcRadius);

    // Setters rebuild the table only when the value changes; on an
    // uninitialised filter they throw (use set()). Getters throw too.
    void sigma(const kxPair<double>& value);
    void plateau(const kxPair<double>& value);
    void angle(kxRadian value);
    void frequency(double value);
    void size(const kxPair<long>& value);

    kxPair<double> sigma() const;  // the parameters; the table's size
    kxPair<double> plateau() const;
    kxRadian angle() const;
    double frequency() const;
    kxPair<long> size() const;
    long supportWidth() const;
    long supportHeight() const;

    // The gain table, support height rows of support width gains (null while
    // uninitialised).
    const float* data() const { return table().data(); }

protected:
    explicit kx_GaborFilter(Role role) : kx_TableFilter(role) {}
    kx_GaborFilter(const kx_GaborFilter& other);
    kx_GaborFilter& operator=(const kx_GaborFilter& other);

    // The DC radius, under the name each filter gives it.
    void dcRadius(long value);
    long dcRadius() const;
    // The ten fields after the base's share. A load is checked against the
    // invariants of a constructed filter before anything changes.
    void streamFields(kxArchive& archive);

private:
    void create(const kx_GaborParameters& parameters);
    template <typename Change>
    void change(Change change);
    const kx_GaborParameters& parameters() const;
    kxPair<long> gainsSize() const override { return parameters_.size; }
    long gainsDcRadius() const override { return parameters_.dcRadius; }
    bool sameParameters(const kx_TableFilter& other) const override;
    void walk(const float* in, kxFrequencyBuffer& out) const override;

    kx_GaborParameters parameters_;
    kxPair<long> support_;   // the table: support_.y() rows of support_.x() gains
};

// The members every concrete filter class declares alike, under its own
// name: copy, assignment, clone, comparison (same parameters and gains), and
// its versioned persistence and factory registration.
#define KX_FILTER_CLASS_MEMBERS(Class)                                   \
public:                                                                  \
    Class(const Class& other);                                           \
    Class& operator=(const Class& other);                                \
    ~Class() override;                                                   \
    kxFrequencyFilter* clone() const override;                           \
    bool operator==(const Class& other) const;                           \
                                                                         \
protected:                                                               \
    void dispatchSerialize(kxArchive& archive) override;                 \
    void serialize_(kxArchive& archive, unsigned char version) override; \
                                                                         \
private:                                                                 \
    static kxPersistent* make();                                         \
    static kx_Instantiator sExemplar;

// An oriented band-pass filter: a Gaussian lobe, optionally with a flat top
// (the plateau), centred `frequency` cycles per pixel from the zero frequency
// in direction `angle`. Frequencies outside the lobe's support are zeroed,
// and a square of (2 dcRemovalRadius - 1) frequencies around the zero
// frequency is cleared (0: nothing cleared). The filter stores only its
// support, not a table of the buffer's size.
class KXFREQ_API kxFrequencyFilterGabor : public kx_GaborFilter {
public:
    kxFrequencyFilterGabor();  // uninitialised, or as set()
    kxFrequencyFilterGabor(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                           double frequency, const kxPair<long>& size, long dcRemovalRadius);

    void dcRemovalRadius(long value);  // the DC radius, set and read
    long dcRemovalRadius() const;

    KX_FILTER_CLASS_MEMBERS(kxFrequencyFilterGabor)
};

// The complement of the Gabor filter: frequencies near the lobe are
// suppressed (gain 1 - Gabor gain), all others pass unchanged, and a square of
// (2 dcProtectionRadius - 1) frequencies around the zero frequency keeps its
// values. Like the Gabor lobe it is one-sided: a real periodic pattern has a
// second peak at angle + pi, which a second filter must reject.
class KXFREQ_API kxFrequencyFilterGaborReject : public kx_GaborFilter {
public:
    kxFrequencyFilterGaborReject();  // uninitialised, or as set()
    kxFrequencyFilterGaborReject(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                                 double frequency, const kxPair<long>& size, long dcProtectionRadius);

    void dcProtectionRadius(long value);  // the DC radius, set and read
    long dcProtectionRadius() const;

    KX_FILTER_CLASS_MEMBERS(kxFrequencyFilterGaborReject)
};

// The body the band-pass and band-reject filters share; use the two classes
// below. Distances are in horizontal frequency bins with the vertical axis
// rescaled by the aspect ratio, so the ring is a circle in cycles per pixel.
// The filter stores a one-dimensional profile oversampled 32 times.
class KXFREQ_API kx_RadialFilter : public kx_TableFilter {
public:
    ~kx_RadialFilter() override;

    void set(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRadius);  // new parameters

    // Setters and getters as the Gabor filters' (they throw without a profile).
    void sigma(double value);
    void plateau(double value);
    void frequency(double value);
    void size(const kxPair<long>& value);

    double sigma() const;  // the parameters
    double plateau() const;
    double frequency() const;
    kxPair<long> size() const;
    // Length of the radial profile in frequency bins.
    long supportWidth() const;

protected:
    explicit kx_RadialFilter(Role role) : kx_TableFilter(role) {}
    kx_RadialFilter(const kx_RadialFilter& other);
    kx_RadialFilter& operator=(const kx_RadialFilter& other);

    void dcRadius(long value);
    long dcRadius() const;
    // The nine fields after the base's share, checked on load like the
    // Gabor filters' ten.
    void streamFields(kxArchive& archive);

private:
    void create(const kx_RadialParameters& parameters);
    template <typename Change>
    void change(Change change);
    const kx_RadialParameters& parameters() const;
    kxPair<long> gainsSize() const override { return parameters_.size; }
    long gainsDcRadius() const override { return parameters_.dcRadius; }
    bool sameParameters(const kx_TableFilter& other) const override;
    void walk(const float* in, kxFrequencyBuffer& out) const override;

    kx_RadialParameters parameters_;
    long supportWidth_ = 0;
    long oversampling_ = 0;   // the table: a profile of supportWidth_ x oversampling_ gains
};

// A radial band-pass filter: gain 1 on a ring of half-width `plateau` around
// the radial frequency `frequency` (cycles per pixel), Gaussian flanks of
// standard deviation `sigma` on both sides, zero far from the ring. A square
// of (2 dcRemovalRadius - 1) frequencies around the zero frequency is
// cleared.
class KXFREQ_API kxFrequencyFilterBandPass : public kx_RadialFilter {
public:
    kxFrequencyFilterBandPass();  // uninitialised, or as set()
    kxFrequencyFilterBandPass(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRemovalRadius);

    void dcRemovalRadius(long value);  // the DC radius, set and read
    long dcRemovalRadius() const;

    KX_FILTER_CLASS_MEMBERS(kxFrequencyFilterBandPass)
};

// The complement of the band-pass filter: frequencies on the ring are
// suppressed (gain 1 - band-pass gain), every other frequency is left as it
// is, and a square of (2 dcProtectionRadius - 1) frequencies around the zero
// frequency keeps its values.
class KXFREQ_API kxFrequencyFilterBandReject : public kx_RadialFilter {
public:
    kxFrequencyFilterBandReject();  // uninitialised, or as set()
    kxFrequencyFilterBandReject(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcProtectionRadius);

    void dcProtectionRadius(long value);  // the DC radius, set and read
    long dcProtectionRadius() const;

    KX_FILTER_CLASS_MEMBERS(kxFrequencyFilterBandReject)
};
#undef KX_FILTER_CLASS_MEMBERS

// A filter whose transfer function is a whole frequency buffer given by the
// caller: apply() multiplies element by element. An empty filter reports the
// buffer's Uninitialized message, not the filter's: its transfer function is
// a buffer without data.
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
