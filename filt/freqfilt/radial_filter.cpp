// The body of the band-pass and band-reject filters: parameters, radial
// profile, walk and persistence. The role decides, as for the Gabor pair:
//
//                     pass (band-pass)           reject (band-reject)
//   profile           gain g                     1 - g
//   off the ring      cleared                    copied
//   DC square         cleared after the walk     saved before, put back after
//
// Neither records a band of rows: the ring reaches the top and the bottom
// rows of the centred spectrum whenever it reaches the side columns.
#include "freqfilt/filter_support.h"

#include "fft/archive_arrays.h"

#include <kx/freqfilt.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

using namespace kxfreq_detail;

namespace {

constexpr long kOversampling = 32;
// A profile beyond this many gains is refused rather than allocated.
constexpr double kMaxProfileGains = 268435456.0;

struct Parameters {
    double sigma;
    double plateau;
    double frequency;
    kxPair<long> size;
    long dcRadius;
};

Parameters parametersOf(const kx_RadialState& s)
{
    return Parameters{s.sigma, s.plateau, s.frequency, s.size, s.dcRadius};
}

// The support width (in bins) a profile for these parameters has, after the
// checks in their order (frequency, sigma, plateau, radius, size x, size y,
// profile size). It sizes a new profile and checks a loaded one.
long supportOf(const Parameters& p, bool reject)
{
    using Arg = kxFrequencyDefs::InvalidArgument;
    if (!(p.frequency >= 0.0 && !(p.frequency > 0.5)))
        throw Arg(kFrequencyOutOfRange);
    if (!(p.sigma > 0.0))
        throw Arg("Sigma must be positive.");
    if (!(p.plateau >= 0.0))
        throw Arg("Plateau cannot be negative.");
    if (p.dcRadius < 0)
        throw Arg(reject ? "DC Protection Radius cannot be negative." : "DC Removal Radius cannot be negative.");
    kf_RequirePowerOfTwoSize(p.size);
    // In bins of the horizontal axis.
    const double W = static_cast<double>(p.size.x());
    const double s = p.sigma * W;
    const double plateau = p.plateau * W;
    const double width = 4.0 * s + plateau + 0.05 * W;
    if (!(width * kOversampling < kMaxProfileGains))
        throw Arg(kTableTooLarge);
    const long supportWidth = static_cast<long>(width);
    return supportWidth % 2 == 0 ? supportWidth + 1 : supportWidth;
}

// Element i is the gain at i / 32 bins from the ring: 1 up to the plateau, a
// Gaussian of sigma beyond it.
void fillProfile(float* profile, const Parameters& p, long count, bool reject)
{
    const double s = p.sigma * static_cast<double>(p.size.x());
    const double plateau = p.plateau * static_cast<double>(p.size.x());
    const double step = 1.0 / kOversampling;
    const double kg = 1.0 / (-2.0 * s * s);
    for (long i = 0; i < count; ++i) {
        if (i % (16 * kOversampling) == 0)
            kxAttention::check();
        const double d = std::max(static_cast<double>(i) * step - plateau, 0.0);
        const double g = std::exp(d * d * kg);
        profile[i] = static_cast<float>(reject ? 1.0 - g : g);
    }
}

// Walks a width x height buffer in storage order. Elements strictly between
// the inner and outer squared radii are scaled by the profile; all others,
// including whole rows beyond the farthest row that can reach the ring, get
// outside(source, destination). src may be dst.
//
// Distances are in horizontal bins: the vertical frequency v counts as
// v x width / height, so the ring is an ellipse in bins and a circle in
// cycles per pixel. The squared-radius bounds are tested in integers.
template <typename Outside>
void walk(const kx_RadialState& state, long width, long height, const float* src, float* dst, Outside outside)
{
    const long hw = width >> 1, hh = height >> 1;
    const float f0 = static_cast<float>(state.frequency * static_cast<double>(width));
    const double a = static_cast<double>(height) / static_cast<double>(width);
    const double k = 1.0 / (a * a);
    const float sw = static_cast<float>(state.supportWidth);
    const long rowLimit = static_cast<long>(f0 * a + static_cast<double>(state.supportWidth));
    const long outer = static_cast<long>((f0 + sw) * (f0 + sw));
    const long inner = f0 - sw >= 0 ? static_cast<long>((f0 - sw) * (f0 - sw)) : -1;

    for (long y = 0; y < height; ++y) {
        kf_PollEvery16(y);
        const float* s = src + 2 * y * width;
        float* d = dst + 2 * y * width;
        const long ry = y < hh ? y : height - y;
        if (ry > rowLimit) {
            for (long x = 0; x < width; ++x)
                outside(s + 2 * x, d + 2 * x);
            continue;
        }
        const std::int32_t v = static_cast<std::int32_t>(y < hh ? y : y - height);
        const std::int32_t yterm = static_cast<std::int32_t>(static_cast<double>(v * v) * k);
        for (long x = 0; x < width; ++x) {
            const std::int32_t u = static_cast<std::int32_t>(x < hw ? x : x - width);
            const std::int32_t r2 = u * u + yterm;
            if (r2 <= inner || r2 >= outer) {
                outside(s + 2 * x, d + 2 * x);
                continue;
            }
            long index = static_cast<long>((std::sqrt(static_cast<double>(r2)) - f0) * 32);
            if (index < 0)
                index = -index;
            kf_ScaleElement(s + 2 * x, d + 2 * x, state.profile[index]);
        }
    }
}

}  // namespace

kx_RadialFilter::kx_RadialFilter(Role role) : role_(role) {}

kx_RadialFilter::kx_RadialFilter(const kx_RadialFilter& other)
    : kxPersistent(), kxRepBase(), kxFrequencyFilter(), role_(other.role_)
{
    *this = other;
}

// From a filter without a profile only the profile is dropped; the
// parameters and the flag keep their values.
kx_RadialFilter& kx_RadialFilter::operator=(const kx_RadialFilter& other)
{
    if (&other == this)
        return *this;
    if (!other.state_.profile) {
        state_.profile = nullptr;
        return *this;
    }
    kxFrequencyFilter::operator=(other);
    const kx_RadialState& from = other.state_;
    state_.supportWidth = from.supportWidth;
    state_.oversampling = from.oversampling;
    state_.frequency = from.frequency;
    state_.sigma = from.sigma;
    state_.plateau = from.plateau;
    state_.size = from.size;
    state_.dcRadius = from.dcRadius;
    const std::size_t count = static_cast<std::size_t>(from.supportWidth * from.oversampling);
    state_.profile = kf_AlignedTable(state_.store, count);
    std::memcpy(state_.profile, from.profile, count * sizeof(float));
    return *this;
}

kx_RadialFilter::~kx_RadialFilter() = default;

bool kx_RadialFilter::equals(const kx_RadialFilter& other) const
{
    const kx_RadialState& a = state_;
    const kx_RadialState& b = other.state_;
    if (isInitialized() != other.isInitialized())
        return false;
    if (!a.profile || !b.profile)
        return !a.profile && !b.profile;
    if (a.supportWidth != b.supportWidth || a.oversampling != b.oversampling || kf_Differs(a.frequency, b.frequency) ||
        kf_Differs(a.sigma, b.sigma) || kf_Differs(a.plateau, b.plateau) || a.size != b.size ||
        a.dcRadius != b.dcRadius)
        return false;
    const long count = a.supportWidth * a.oversampling;
    for (long i = 0; i < count; ++i)
        if (kf_Differs(a.profile[i], b.profile[i]))
            return false;
    return true;
}

// Built aside and only then committed: a failed or cancelled call changes
// nothing.
void kx_RadialFilter::create(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRadius)
{
    const Parameters p{sigma, plateau, frequency, size, dcRadius};
    const bool reject = role_ == eReject;
    const long supportWidth = supportOf(p, reject);
    const long count = supportWidth * kOversampling;
    std::vector<float> built;
    float* builtProfile = kf_AlignedTable(built, static_cast<std::size_t>(count));
    fillProfile(builtProfile, p, count, reject);

    mutating();
    const std::size_t oldCount = static_cast<std::size_t>(state_.supportWidth * state_.oversampling);
    state_.profile = kf_CommitTable(state_.store, state_.profile, oldCount, built, builtProfile,
                                    static_cast<std::size_t>(count));
    state_.supportWidth = supportWidth;
    state_.oversampling = kOversampling;
    state_.frequency = frequency;
    state_.sigma = sigma;
    state_.plateau = plateau;
    state_.size = size;
    state_.dcRadius = dcRadius;
    setInitialized(true);
}

void kx_RadialFilter::set(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRadius)
{
    create(sigma, plateau, frequency, size, dcRadius);
}

template <typename Setter>
void kx_RadialFilter::change(Setter setter)
{
    kf_RequireTransferFunction(state_.profile);
    Parameters p = parametersOf(state_);
    if (setter(p))
        create(p.sigma, p.plateau, p.frequency, p.size, p.dcRadius);
}

#define KX_RADIAL_PARAMETER(Name, Type, Field)                                         \
    void kx_RadialFilter::Name(Type value)                                             \
    {                                                                                  \
        change([&](Parameters& p) {                                                    \
            const bool differs = kf_Differs(value, p.Field);                           \
            p.Field = value;                                                           \
            return differs;                                                            \
        });                                                                            \
    }
KX_RADIAL_PARAMETER(sigma, double, sigma)
KX_RADIAL_PARAMETER(plateau, double, plateau)
KX_RADIAL_PARAMETER(frequency, double, frequency)
KX_RADIAL_PARAMETER(size, const kxPair<long>&, size)
KX_RADIAL_PARAMETER(dcRadius, long, dcRadius)
#undef KX_RADIAL_PARAMETER

#define KX_RADIAL_GETTER(Name, Type, Field)          \
    Type kx_RadialFilter::Name() const               \
    {                                                \
        kf_RequireTransferFunction(state_.profile);  \
        return state_.Field;                         \
    }
KX_RADIAL_GETTER(sigma, double, sigma)
KX_RADIAL_GETTER(plateau, double, plateau)
KX_RADIAL_GETTER(frequency, double, frequency)
KX_RADIAL_GETTER(size, kxPair<long>, size)
KX_RADIAL_GETTER(dcRadius, long, dcRadius)
KX_RADIAL_GETTER(supportWidth, long, supportWidth)
#undef KX_RADIAL_GETTER

void kx_RadialFilter::filter(const float* in, kxFrequencyBuffer& out) const
{
    maskFrequencyBuffer(out, false, 0, 0);
    float* outData = getFrequencyBufferData(out);
    if (role_ == ePass) {
        walk(state_, out.width(), out.height(), in, outData, kf_ClearElement);
        kf_ClearDcSquare(out, state_.dcRadius);
        return;
    }
    walk(state_, out.width(), out.height(), in, outData, kf_CopyElement);
}

void kx_RadialFilter::apply(kxFrequencyBuffer& buffer) const
{
    kf_RequireInitialized(buffer);
    kf_RequireTransferFunction(state_.profile);
    kf_RequireFilterSize(buffer, state_.size);
    kf_RequireDcSquareInside(buffer, state_.dcRadius);
    const std::vector<kxPair<double>> saved =
        role_ == eReject ? kf_SaveDcSquare(buffer, state_.dcRadius) : std::vector<kxPair<double>>();
    writeOrInvalidate(buffer, [&] {
        filter(getFrequencyBufferData(buffer), buffer);
        if (role_ == eReject)
            kf_RestoreDcSquare(buffer, state_.dcRadius, saved);
    });
}

// dst takes the padded size as its requested size; src's offset and
// transform are not carried over.
void kx_RadialFilter::apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const
{
    kf_RequireInitialized(src);
    kf_RequireTransferFunction(state_.profile);
    kf_RequireFilterSize(src, state_.size);
    kf_RequireDcSquareInside(src, state_.dcRadius);
    const std::vector<kxPair<double>> saved =
        role_ == eReject ? kf_SaveDcSquare(src, state_.dcRadius) : std::vector<kxPair<double>>();
    writeOrInvalidate(dst, [&] {
        setAndAllocateFrequencyBuffer(dst, src.width(), src.height());
        filter(getFrequencyBufferData(src), dst);
        if (role_ == eReject)
            kf_RestoreDcSquare(dst, state_.dcRadius, saved);
    });
}

void kx_RadialFilter::streamFields(kxArchive& archive)
{
    // Streamed through locals: a load that fails leaves the filter as it was.
    long supportWidth = state_.supportWidth, oversampling = state_.oversampling;
    double frequency = state_.frequency, sigma = state_.sigma, plateau = state_.plateau;
    kxPair<long> size = state_.size;
    long dcRadius = state_.dcRadius;
    bool hasTable = state_.profile != nullptr;
    std::vector<float> gains;
    if (archive.isStoring() && hasTable)
        gains.assign(state_.profile, state_.profile + supportWidth * oversampling);
    archive || supportWidth || oversampling || frequency || sigma || plateau;
    archive || size;
    archive || dcRadius || hasTable;
    kf_StreamFloats(archive, gains);
    if (archive.isStoring())
        return;

    // The walk reads profile[(distance in bins) x 32] for distances below the
    // support width from a ring at frequency x width: a stored profile must
    // be the one its parameters give, as for a constructed filter.
    if (hasTable) {
        const Parameters p{sigma, plateau, frequency, size, dcRadius};
        const long expectedWidth = kf_CheckLoaded([&] { return supportOf(p, role_ == eReject); });
        if (supportWidth != expectedWidth || oversampling != kOversampling)
            kf_RefuseLoad("stored profile size does not match the stored parameters");
    }
    const unsigned long expected = hasTable ? static_cast<unsigned long>(supportWidth) * kOversampling : 0;
    std::vector<float> store;
    float* profile = kf_LoadTable(store, hasTable, expected, gains);
    state_.supportWidth = supportWidth;
    state_.oversampling = oversampling;
    state_.frequency = frequency;
    state_.sigma = sigma;
    state_.plateau = plateau;
    state_.size = size;
    state_.dcRadius = dcRadius;
    state_.store.swap(store);
    state_.profile = profile;
}
