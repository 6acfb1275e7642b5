#include "freqfilt/gabor_common.h"

#include "fft/archive_arrays.h"
#include "fft/buffer_access.h"
#include "freqfilt/filter_support.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// A table beyond this many gains is refused rather than allocated: it would
// take over a gigabyte for a lobe far wider than any buffer.
constexpr double kMaxTableGains = 268435456.0;

void validate(const kf_GaborParameters& p, const char* radiusMessage)
{
    using Arg = kxFrequencyDefs::InvalidArgument;
    if (!(p.frequency >= 0.0 && p.frequency <= 0.5))
        throw Arg("Frequency must be between 0.0 and 0.5.");
    if (p.sigma.x() <= 0.0 || p.sigma.y() <= 0.0)
        throw Arg("Sigma values must be positive.");
    if (p.plateau.x() < 0.0 || p.plateau.y() < 0.0)
        throw Arg("Plateau values cannot be negative.");
    if (p.dcRadius < 0)
        throw Arg(radiusMessage);
    kf_RequirePowerOfTwoSize(p.size);
}

long makeOdd(long value) { return value % 2 == 0 ? value + 1 : value; }

}  // namespace

kf_GaborParameters kf_GaborParametersOf(const kx_GaborState& s)
{
    return kf_GaborParameters{s.sigma, s.plateau, s.angle, s.frequency, s.size, s.dcRadius};
}

void kf_GaborCreate(kx_GaborState& state, const kf_GaborParameters& p, const char* radiusMessage,
                    std::size_t spareFloats, bool complement, kxPersistent& owner)
{
    validate(p, radiusMessage);

    // Frequencies in bins of the buffer's width (the y components too).
    const double W = static_cast<double>(p.size.x());
    const double H = static_cast<double>(p.size.y());
    const double aspect = H / W;
    const double sx = p.sigma.x() * W, sy = p.sigma.y() * W;
    const double px = p.plateau.x() * W, py = p.plateau.y() * W;
    const double c = std::fabs(std::cos(p.angle.toDouble()));
    const double s = std::fabs(std::sin(p.angle.toDouble()));

    // Extents of the rotated lobe: four standard deviations and one plateau
    // half-width to each side, plus five per cent of the buffer.
    const double ex = std::max(sx * c, sy * s);
    const double ey = std::max(sy * c, sx * s) * aspect;
    const double pex = std::max(px * c, py * s);
    const double pey = std::max(py * c, px * s) * aspect;
    const double width = ex * 8.0 + pex * 2.0 + 0.05 * W;
    const double height = ey * 8.0 + pey * 2.0 + 0.05 * H;
    if (!(width * height < kMaxTableGains))
        throw kxFrequencyDefs::InvalidArgument("Sigma and plateau values are too large for the filter size.");

    owner.mutating();
    const long oldCount = state.supportWidth * state.supportHeight;
    state.supportWidth = makeOdd(static_cast<long>(width));
    state.supportHeight = makeOdd(static_cast<long>(height));
    const long count = state.supportWidth * state.supportHeight;
    // A table of the same element count is reused in place, even if its
    // shape changed.
    if (state.table && count != oldCount)
        state.table = nullptr;
    state.sigma = p.sigma;
    state.plateau = p.plateau;
    state.angle = p.angle;
    state.frequency = p.frequency;
    state.size = p.size;
    state.dcRadius = p.dcRadius;
    if (!state.table)
        state.table = kf_AlignedTable(state.store, static_cast<std::size_t>(count), spareFloats);

    // The filter's own frame: offsets rotated through minus the angle, so x
    // runs along the filter direction and y across it.
    const kxXform<2> frame(kxVector<2>(0, 0), 1.0, 1.0, kxRadian(0.0), -p.angle);
    const double kx = 1.0 / (-2.0 * sx * sx);
    const double ky = 1.0 / (-2.0 * sy * sy);
    const double halfW = static_cast<double>(state.supportWidth >> 1);
    const double halfH = static_cast<double>(state.supportHeight >> 1);

    // The lobe's centre in centred coordinates; only its fractional part
    // places the table against the integer centre bin.
    const double r = p.frequency * W;
    double fx = std::cos(p.angle.toDouble()) * r + static_cast<double>(p.size.x() >> 1);
    double fy = std::sin(p.angle.toDouble()) * r * aspect + static_cast<double>(p.size.y() >> 1);
    fx = fx - std::trunc(fx);
    fy = fy - std::trunc(fy);

    float* gain = state.table;
    for (double y = -halfH; y <= halfH; y += 1.0)
        for (double x = -halfW; x <= halfW; x += 1.0) {
            const kxVector<2> d(x - fx, (y - fy) / aspect);
            const kxVector<2> uv = frame * d;
            const double du = std::max(std::fabs(uv.x()) - px, 0.0);
            const double dv = std::max(std::fabs(uv.y()) - py, 0.0);
            const double g = std::exp(du * du * kx + dv * dv * ky);
            *gain++ = static_cast<float>(complement ? 1.0 - g : g);
        }
}

void kf_GaborAssign(kx_GaborState& to, const kx_GaborState& from)
{
    if (&to == &from)
        return;
    if (!from.table) {
        to.table = nullptr;
        return;
    }
    to.supportWidth = from.supportWidth;
    to.supportHeight = from.supportHeight;
    to.angle = from.angle;
    to.frequency = from.frequency;
    to.sigma = from.sigma;
    to.plateau = from.plateau;
    to.size = from.size;
    to.dcRadius = from.dcRadius;
    const std::size_t count = static_cast<std::size_t>(from.supportWidth * from.supportHeight);
    to.table = kf_AlignedTable(to.store, count, 3);
    std::memcpy(to.table, from.table, count * sizeof(float));
}

bool kf_GaborEqual(const kx_GaborState& a, const kx_GaborState& b)
{
    if (!a.table || !b.table)
        return !a.table && !b.table;
    auto differ = [](double u, double v) { return u < v || u > v; };
    if (a.supportWidth != b.supportWidth || a.supportHeight != b.supportHeight || a.angle != b.angle ||
        differ(a.frequency, b.frequency) || a.sigma != b.sigma || a.plateau != b.plateau || a.size != b.size ||
        a.dcRadius != b.dcRadius)
        return false;
    const long count = a.supportWidth * a.supportHeight;
    for (long i = 0; i < count; ++i)
        if (differ(a.table[i], b.table[i]))
            return false;
    return true;
}

void kf_GaborStream(kxArchive& archive, kx_GaborState& state)
{
    // Streamed through locals: a load that fails leaves the filter as it was.
    long supportWidth = state.supportWidth, supportHeight = state.supportHeight;
    double angle = state.angle.toDouble(), frequency = state.frequency;
    kxPair<double> sigma = state.sigma, plateau = state.plateau;
    kxPair<long> size = state.size;
    long dcRadius = state.dcRadius;
    bool hasTable = state.table != nullptr;
    std::vector<float> gains;
    if (archive.isStoring() && hasTable)
        gains.assign(state.table, state.table + supportWidth * supportHeight);
    archive || supportWidth || supportHeight || angle || frequency;
    archive || sigma || plateau || size;
    archive || dcRadius || hasTable;
    kf_StreamFloats(archive, gains);
    if (archive.isStoring())
        return;

    // A well-formed table has odd, positive sides; the walk relies on it.
    const bool shapeValid = supportWidth > 0 && supportHeight > 0 && supportWidth % 2 == 1 && supportHeight % 2 == 1;
    if (hasTable && !shapeValid)
        throw kxArchive::Error("kxFrequencyFilter: stored support size is not valid");
    const unsigned long expected =
        hasTable ? static_cast<unsigned long>(supportWidth) * static_cast<unsigned long>(supportHeight) : 0;
    std::vector<float> store;
    float* table = kf_LoadTable(store, hasTable, expected, gains);
    state.supportWidth = supportWidth;
    state.supportHeight = supportHeight;
    state.angle = kxRadian(angle);
    state.frequency = frequency;
    state.sigma = sigma;
    state.plateau = plateau;
    state.size = size;
    state.dcRadius = dcRadius;
    state.store.swap(store);
    state.table = table;
}

kf_GaborRect kf_GaborRectangle(const kx_GaborState& state, long width, long height)
{
    const long hw = width >> 1, hh = height >> 1;
    const double r = state.frequency * static_cast<double>(width);
    const double aspect = static_cast<double>(height) / static_cast<double>(width);
    // The offset is truncated before the centre is added; the table was laid
    // out from the fractional part after adding it. For a negative
    // non-integer offset the two disagree by one bin: long-standing
    // behaviour, kept.
    const long cx = static_cast<long>(std::trunc(std::cos(state.angle.toDouble()) * r)) + hw;
    const long cy = static_cast<long>(std::trunc(std::sin(state.angle.toDouble()) * r * aspect)) + hh;
    return kf_GaborRect{cx - (state.supportWidth >> 1), cx + (state.supportWidth >> 1),
                        cy - (state.supportHeight >> 1), cy + (state.supportHeight >> 1)};
}
