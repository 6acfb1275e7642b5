#include "freqfilt/radial_common.h"

#include "fft/archive_arrays.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr long kOversampling = 32;
// A profile beyond this many gains is refused rather than allocated.
constexpr double kMaxProfileGains = 268435456.0;

void validate(const kf_RadialParameters& p, const char* radiusMessage)
{
    using Arg = kxFrequencyDefs::InvalidArgument;
    if (!(p.frequency >= 0.0 && !(p.frequency > 0.5)))
        throw Arg("Frequency must be between 0.0 and 0.5.");
    if (!(p.sigma > 0.0))
        throw Arg("Sigma must be positive.");
    if (!(p.plateau >= 0.0))
        throw Arg("Plateau cannot be negative.");
    if (p.dcRadius < 0)
        throw Arg(radiusMessage);
    kf_RequirePowerOfTwoSize(p.size);
}

}  // namespace

kf_RadialParameters kf_RadialParametersOf(const kx_RadialState& s)
{
    return kf_RadialParameters{s.sigma, s.plateau, s.frequency, s.size, s.dcRadius};
}

void kf_RadialCreate(kx_RadialState& state, const kf_RadialParameters& p, const char* radiusMessage,
                     bool complement, kxPersistent& owner)
{
    validate(p, radiusMessage);
    // In bins of the horizontal axis.
    const double s = p.sigma * static_cast<double>(p.size.x());
    const double plateau = p.plateau * static_cast<double>(p.size.x());
    const double width = 4.0 * s + plateau + 0.05 * static_cast<double>(p.size.x());
    if (!(width * kOversampling < kMaxProfileGains))
        throw kxFrequencyDefs::InvalidArgument("Sigma and plateau values are too large for the filter size.");

    owner.mutating();
    const long oldCount = state.supportWidth * state.oversampling;
    long supportWidth = static_cast<long>(width);
    if (supportWidth % 2 == 0)
        ++supportWidth;
    state.supportWidth = supportWidth;
    state.oversampling = kOversampling;
    const long count = supportWidth * kOversampling;
    if (state.profile && count != oldCount)
        state.profile = nullptr;
    state.frequency = p.frequency;
    state.sigma = p.sigma;
    state.plateau = p.plateau;
    state.size = p.size;
    state.dcRadius = p.dcRadius;
    if (!state.profile)
        state.profile = kf_AlignedTable(state.store, static_cast<std::size_t>(count), 3);

    // Element i is the gain at i / 32 bins from the ring: 1 up to the
    // plateau, a Gaussian of s bins beyond it.
    const double step = 1.0 / kOversampling;
    const double kg = 1.0 / (-2.0 * s * s);
    for (long i = 0; i < count; ++i) {
        const double d = std::max(static_cast<double>(i) * step - plateau, 0.0);
        const double g = std::exp(d * d * kg);
        state.profile[i] = static_cast<float>(complement ? 1.0 - g : g);
    }
}

void kf_RadialAssign(kx_RadialState& to, const kx_RadialState& from)
{
    if (&to == &from)
        return;
    if (!from.profile) {
        to.profile = nullptr;
        return;
    }
    to.supportWidth = from.supportWidth;
    to.oversampling = from.oversampling;
    to.frequency = from.frequency;
    to.sigma = from.sigma;
    to.plateau = from.plateau;
    to.size = from.size;
    to.dcRadius = from.dcRadius;
    const std::size_t count = static_cast<std::size_t>(from.supportWidth * from.oversampling);
    to.profile = kf_AlignedTable(to.store, count, 3);
    std::memcpy(to.profile, from.profile, count * sizeof(float));
}

bool kf_RadialEqual(const kx_RadialState& a, const kx_RadialState& b)
{
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

void kf_RadialStream(kxArchive& archive, kx_RadialState& state)
{
    // Streamed through locals: a load that fails leaves the filter as it was.
    long supportWidth = state.supportWidth, oversampling = state.oversampling;
    double frequency = state.frequency, sigma = state.sigma, plateau = state.plateau;
    kxPair<long> size = state.size;
    long dcRadius = state.dcRadius;
    bool hasTable = state.profile != nullptr;
    std::vector<float> gains;
    if (archive.isStoring() && hasTable)
        gains.assign(state.profile, state.profile + supportWidth * oversampling);
    archive || supportWidth || oversampling || frequency || sigma || plateau;
    archive || size;
    archive || dcRadius || hasTable;
    kf_StreamFloats(archive, gains);
    if (archive.isStoring())
        return;

    // The walk reads profile[(distance in bins) x 32] for distances below the
    // support width: a stored profile must cover that.
    if (hasTable && (supportWidth < 1 || oversampling != kOversampling))
        throw kxArchive::Error("kxFrequencyFilter: stored profile size is not valid");
    const unsigned long expected = hasTable ? static_cast<unsigned long>(supportWidth) * kOversampling : 0;
    std::vector<float> store;
    float* profile = kf_LoadTable(store, hasTable, expected, gains);
    state.supportWidth = supportWidth;
    state.oversampling = oversampling;
    state.frequency = frequency;
    state.sigma = sigma;
    state.plateau = plateau;
    state.size = size;
    state.dcRadius = dcRadius;
    state.store.swap(store);
    state.profile = profile;
}
