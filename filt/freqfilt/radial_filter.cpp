// The body of the band-pass and band-reject filters: parameters, radial
// profile, walk and persistence. The role decides, as for the Gabor pair:
//
//                     pass (band-pass)           reject (band-reject)
//   profile           gain g                     1 - g
//   off the ring      cleared                    copied
//   DC square         cleared after the walk     saved before, put back after
//
#include "freqfilt/filter_support.h"

#include "fft/archive_arrays.h"
#include "fft/engine/variants.h"
#include "fft/frequency_index.h"
#include "freqfilt/ring_row.h"

#include <kx/freqfilt.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

using namespace kxfreq_detail;

namespace {

constexpr long kOversampling = 32;
// A profile beyond this many gains is refused rather than allocated.
constexpr double kMaxProfileGains = 268435456.0;

using Parameters = kx_RadialParameters;

// The support width (in bins) a profile for these parameters has, after the
// checks in their order (frequency, sigma, plateau, radius, size x, size y,
// profile size). It sizes a new profile and checks a loaded one.
long supportOf(const Parameters& p, bool reject)
{
    using Arg = kxFrequencyDefs::InvalidArgument;
    kf_Require<Arg>(p.frequency >= 0.0 && !(p.frequency > 0.5), kFrequencyOutOfRange);
    kf_Require<Arg>(p.sigma > 0.0, kRadialSigma);
    kf_Require<Arg>(p.plateau >= 0.0, kRadialPlateau);
    kf_RequireDcRadius(p.dcRadius, reject);
    kf_RequirePowerOfTwoSize(p.size);
    // In bins of the horizontal axis.
    const double W = static_cast<double>(p.size.x());
    const double s = p.sigma * W;
    const double plateau = p.plateau * W;
    const double width = 4.0 * s + plateau + 0.05 * W;
    kf_Require<Arg>(width * kOversampling < kMaxProfileGains, kTableTooLarge);
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
// including whole rows beyond the farthest row that can reach the ring, are
// cleared (band-pass) or copied (band-reject). src may be dst.
//
// Distances are in horizontal bins: the vertical frequency v counts as
// v x width / height, so the ring is an ellipse in bins and a circle in
// cycles per pixel. The squared-radius bounds are tested in integers (r2
// stays below 2^22: |u| <= 1024 and the vertical term at most width^2 / 4).
void walkRing(const float* profile, double frequency, long supportWidth, long width, long height, const float* src,
              float* dst, bool clearOutside)
{
    const float f0 = static_cast<float>(frequency * static_cast<double>(width));
    const double a = static_cast<double>(height) / static_cast<double>(width);
    const double k = 1.0 / (a * a);
    const float sw = static_cast<float>(supportWidth);
    const long rowLimit = static_cast<long>(f0 * a + static_cast<double>(supportWidth));
    const long outer = static_cast<long>((f0 + sw) * (f0 + sw));
    const long inner = f0 - sw >= 0 ? static_cast<long>((f0 - sw) * (f0 - sw)) : -1;
    const auto clampToInt32 = [](long v) { return static_cast<std::int32_t>(std::min<long>(v, INT32_MAX)); };
    const kf_RingRowFunction fastRow = kf_ActiveEngineVariant().ringRow;

    for (long y = 0; y < height; ++y) {
        kf_PollEvery16(y);
        const float* s = src + 2 * y * width;
        float* d = dst + 2 * y * width;
        const long rowFrequency = kf_RingFrequency(y, height);
        if (std::labs(rowFrequency) > rowLimit) {
            // A whole row off the ring: cleared, or copied unless in place.
            if (clearOutside)
                std::fill(d, d + 2 * width, 0.0f);
            else if (s != d)
                std::copy(s, s + 2 * width, d);
            continue;
        }
        const std::int32_t v = static_cast<std::int32_t>(rowFrequency);
        const std::int32_t yterm = static_cast<std::int32_t>(static_cast<double>(v * v) * k);
        const kf_RingRow row{s, d, width, yterm, clampToInt32(inner), clampToInt32(outer), f0, profile, clearOutside};
        if (fastRow)
            fastRow(row);
        else
            kf_RingRowScalar(row, 0, width);
    }
}

}  // namespace

kx_RadialFilter::kx_RadialFilter(const kx_RadialFilter& other) : kxPersistent(), kxRepBase(), kx_TableFilter(other)
{
    *this = other;
}

kx_RadialFilter& kx_RadialFilter::operator=(const kx_RadialFilter& other)
{
    if (&other != this && assignTable(other)) {
        parameters_ = other.parameters_;
        supportWidth_ = other.supportWidth_;
        oversampling_ = other.oversampling_;
    }
    return *this;
}

kx_RadialFilter::~kx_RadialFilter() = default;

bool kx_RadialFilter::sameParameters(const kx_TableFilter& other) const
{
    const kx_RadialFilter& o = static_cast<const kx_RadialFilter&>(other);
    const Parameters& a = parameters_;
    const Parameters& b = o.parameters_;
    return !(supportWidth_ != o.supportWidth_ || oversampling_ != o.oversampling_ ||
             kf_Differs(a.frequency, b.frequency) || kf_Differs(a.sigma, b.sigma) || kf_Differs(a.plateau, b.plateau) ||
             a.size != b.size || a.dcRadius != b.dcRadius);
}

// Built aside and only then committed: a failed or cancelled call changes
// nothing.
void kx_RadialFilter::create(const Parameters& p)
{
    const bool reject = role() == eReject;
    const long supportWidth = supportOf(p, reject);
    const long count = supportWidth * kOversampling;
    kx_GainTable built(static_cast<std::size_t>(count));
    fillProfile(built.data(), p, count, reject);

    mutating();
    table().commit(built);
    supportWidth_ = supportWidth;
    oversampling_ = kOversampling;
    parameters_ = p;
    setInitialized(true);
}

void kx_RadialFilter::set(double sigma, double plateau, double frequency, const kxPair<long>& size, long dcRadius)
{
    create(Parameters{sigma, plateau, frequency, size, dcRadius});
}

template <typename Change>
void kx_RadialFilter::change(Change change)
{
    Parameters p = parameters();
    if (change(p))
        create(p);
}

const kx_RadialParameters& kx_RadialFilter::parameters() const
{
    kf_RequireTransferFunction(table().data());
    return parameters_;
}

void kx_RadialFilter::sigma(double v) { change([&](Parameters& p) { return kf_Assign(p.sigma, v); }); }
void kx_RadialFilter::plateau(double v) { change([&](Parameters& p) { return kf_Assign(p.plateau, v); }); }
void kx_RadialFilter::frequency(double v) { change([&](Parameters& p) { return kf_Assign(p.frequency, v); }); }
void kx_RadialFilter::size(const kxPair<long>& v) { change([&](Parameters& p) { return kf_Assign(p.size, v); }); }
void kx_RadialFilter::dcRadius(long v) { change([&](Parameters& p) { return kf_Assign(p.dcRadius, v); }); }

double kx_RadialFilter::sigma() const { return parameters().sigma; }
double kx_RadialFilter::plateau() const { return parameters().plateau; }
double kx_RadialFilter::frequency() const { return parameters().frequency; }
kxPair<long> kx_RadialFilter::size() const { return parameters().size; }
long kx_RadialFilter::dcRadius() const { return parameters().dcRadius; }

long kx_RadialFilter::supportWidth() const
{
    kf_RequireTransferFunction(table().data());
    return supportWidth_;
}

// Neither role records a band of rows: the ring reaches the top and bottom
// rows of the centred spectrum whenever it reaches the side columns.
void kx_RadialFilter::walk(const float* in, kxFrequencyBuffer& out) const
{
    maskFrequencyBuffer(out, false, 0, 0);
    float* outData = getFrequencyBufferData(out);
    const double f = parameters_.frequency;
    if (role() == ePass)
        walkRing(table().data(), f, supportWidth_, out.width(), out.height(), in, outData, true);
    else
        walkRing(table().data(), f, supportWidth_, out.width(), out.height(), in, outData, false);
}

void kx_RadialFilter::streamFields(kxArchive& archive)
{
    // Streamed through locals: a load that fails leaves the filter as it was.
    long supportWidth = supportWidth_, oversampling = oversampling_;
    Parameters p = parameters_;
    bool hasTable = table().data() != nullptr;
    std::vector<float> gains = archive.isStoring() ? table().stored() : std::vector<float>();
    archive || supportWidth || oversampling || p.frequency || p.sigma || p.plateau;
    archive || p.size;
    archive || p.dcRadius || hasTable;
    kf_StreamFloats(archive, gains);
    if (archive.isStoring())
        return;

    // The walk reads profile[(distance in bins) x 32] for distances below the
    // support width from a ring at frequency x width: a stored profile must
    // be the one its parameters give, as for a constructed filter.
    if (hasTable && (kf_CheckLoaded([&] { return supportOf(p, role() == eReject); }) != supportWidth ||
                     oversampling != kOversampling))
        kf_RefuseLoad("stored profile size does not match the stored parameters");
    const unsigned long expected = hasTable ? static_cast<unsigned long>(supportWidth) * kOversampling : 0;
    table().load(hasTable, expected, gains);
    supportWidth_ = supportWidth;
    oversampling_ = oversampling;
    parameters_ = p;
}
