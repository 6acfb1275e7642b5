// The body of the Gabor filter and the Gabor reject filter: parameters,
// gain table, walk and persistence. The two classes differ only in their
// role, which decides three things:
//
//                     pass (Gabor)               reject (Gabor reject)
//   table             gain g                     1 - g
//   outside support   cleared                    copied
//   DC square         cleared after the walk     saved before, put back after
//   masked band       the support's rows         none
#include "freqfilt/filter_support.h"

#include "fft/archive_arrays.h"

#include <kx/freqfilt.h>

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace kxfreq_detail;

namespace {

// A table beyond this many gains is refused rather than allocated: it would
// take over a gigabyte for a lobe far wider than any buffer.
constexpr double kMaxTableGains = 268435456.0;

struct Parameters {
    kxPair<double> sigma;
    kxPair<double> plateau;
    kxRadian angle;
    double frequency;
    kxPair<long> size;
    long dcRadius;
};

Parameters parametersOf(const kx_GaborState& s)
{
    return Parameters{s.sigma, s.plateau, s.angle, s.frequency, s.size, s.dcRadius};
}

const char* radiusMessage(bool reject)
{
    return reject ? "DC Protection Radius cannot be negative." : "DC Removal Radius cannot be negative.";
}

long makeOdd(long value) { return value % 2 == 0 ? value + 1 : value; }

// The support a table for these parameters has, after the checks in their
// order (frequency, sigma, plateau, radius, size x, size y, table size). The
// same function sizes a new table and checks a loaded one.
kxPair<long> supportOf(const Parameters& p, bool reject)
{
    using Arg = kxFrequencyDefs::InvalidArgument;
    if (!(p.frequency >= 0.0 && p.frequency <= 0.5))
        throw Arg(kFrequencyOutOfRange);
    if (p.sigma.x() <= 0.0 || p.sigma.y() <= 0.0)
        throw Arg("Sigma values must be positive.");
    if (p.plateau.x() < 0.0 || p.plateau.y() < 0.0)
        throw Arg("Plateau values cannot be negative.");
    if (p.dcRadius < 0)
        throw Arg(radiusMessage(reject));
    kf_RequirePowerOfTwoSize(p.size);

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
        throw Arg(kTableTooLarge);
    return kxPair<long>(makeOdd(static_cast<long>(width)), makeOdd(static_cast<long>(height)));
}

// Fills support.y rows of support.x gains, polling every 16 rows.
void fillTable(float* gain, const Parameters& p, const kxPair<long>& support, bool reject)
{
    const double W = static_cast<double>(p.size.x());
    const double aspect = static_cast<double>(p.size.y()) / W;
    const double sx = p.sigma.x() * W, sy = p.sigma.y() * W;
    const double px = p.plateau.x() * W, py = p.plateau.y() * W;

    // The filter's own frame: offsets rotated through minus the angle, so x
    // runs along the filter direction and y across it.
    const kxXform<2> frame(kxVector<2>(0, 0), 1.0, 1.0, kxRadian(0.0), -p.angle);
    const double kx = 1.0 / (-2.0 * sx * sx);
    const double ky = 1.0 / (-2.0 * sy * sy);
    const double halfW = static_cast<double>(support.x() >> 1);
    const double halfH = static_cast<double>(support.y() >> 1);

    // The lobe's centre in centred coordinates; only its fractional part
    // places the table against the integer centre bin.
    const double r = p.frequency * W;
    double fx = std::cos(p.angle.toDouble()) * r + static_cast<double>(p.size.x() >> 1);
    double fy = std::sin(p.angle.toDouble()) * r * aspect + static_cast<double>(p.size.y() >> 1);
    fx = fx - std::trunc(fx);
    fy = fy - std::trunc(fy);

    long row = 0;
    for (double y = -halfH; y <= halfH; y += 1.0, ++row) {
        kf_PollEvery16(row);
        for (double x = -halfW; x <= halfW; x += 1.0) {
            const kxVector<2> d(x - fx, (y - fy) / aspect);
            const kxVector<2> uv = frame * d;
            const double du = std::max(std::fabs(uv.x()) - px, 0.0);
            const double dv = std::max(std::fabs(uv.y()) - py, 0.0);
            const double g = std::exp(du * du * kx + dv * dv * ky);
            *gain++ = static_cast<float>(reject ? 1.0 - g : g);
        }
    }
}

// The support rectangle in centred coordinates of a width x height buffer:
// rows top..bottom inclusive, columns left..right - 1 (the table's last
// column is never used).
struct Rect {
    long left, right, top, bottom;
};

Rect rectangleOf(const kx_GaborState& state, long width, long height)
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
    return Rect{cx - (state.supportWidth >> 1), cx + (state.supportWidth >> 1), cy - (state.supportHeight >> 1),
                cy + (state.supportHeight >> 1)};
}

// Walks the buffer in storage order. Elements in the rectangle get
// inside(source element, destination element, gain), the others
// outside(source element, destination element). src may be dst.
template <typename Outside>
void walk(const kx_GaborState& state, const Rect& rect, long width, long height, const float* src, float* dst,
          Outside outside)
{
    const long hw = width >> 1, hh = height >> 1;
    for (long r = 0; r < height; ++r) {
        kf_PollEvery16(r);
        const long Y = r < hh ? r + hh : r - hh;
        const bool rowInside = rect.top <= Y && Y <= rect.bottom;
        const long tableRow = (Y - rect.top) * state.supportWidth;
        for (long c = 0; c < width; ++c) {
            const long X = c < hw ? c + hw : c - hw;
            const long i = 2 * (r * width + c);
            if (rowInside && rect.left <= X && X < rect.right)
                kf_ScaleElement(src + i, dst + i, state.table[tableRow + X - rect.left]);
            else
                outside(src + i, dst + i);
        }
    }
}

}  // namespace

kx_GaborFilter::kx_GaborFilter(Role role) : role_(role) {}

kx_GaborFilter::kx_GaborFilter(const kx_GaborFilter& other)
    : kxPersistent(), kxRepBase(), kxFrequencyFilter(), role_(other.role_)
{
    *this = other;
}

// From a filter without a table only the table is dropped; the parameters
// and the flag keep their values.
kx_GaborFilter& kx_GaborFilter::operator=(const kx_GaborFilter& other)
{
    if (&other == this)
        return *this;
    if (!other.state_.table) {
        state_.table = nullptr;
        return *this;
    }
    kxFrequencyFilter::operator=(other);
    const kx_GaborState& from = other.state_;
    state_.supportWidth = from.supportWidth;
    state_.supportHeight = from.supportHeight;
    state_.angle = from.angle;
    state_.frequency = from.frequency;
    state_.sigma = from.sigma;
    state_.plateau = from.plateau;
    state_.size = from.size;
    state_.dcRadius = from.dcRadius;
    const std::size_t count = static_cast<std::size_t>(from.supportWidth * from.supportHeight);
    state_.table = kf_AlignedTable(state_.store, count);
    std::memcpy(state_.table, from.table, count * sizeof(float));
    return *this;
}

kx_GaborFilter::~kx_GaborFilter() = default;

bool kx_GaborFilter::equals(const kx_GaborFilter& other) const
{
    const kx_GaborState& a = state_;
    const kx_GaborState& b = other.state_;
    if (isInitialized() != other.isInitialized())
        return false;
    if (!a.table || !b.table)
        return !a.table && !b.table;
    if (a.supportWidth != b.supportWidth || a.supportHeight != b.supportHeight || a.angle != b.angle ||
        kf_Differs(a.frequency, b.frequency) || a.sigma != b.sigma || a.plateau != b.plateau || a.size != b.size ||
        a.dcRadius != b.dcRadius)
        return false;
    const long count = a.supportWidth * a.supportHeight;
    for (long i = 0; i < count; ++i)
        if (kf_Differs(a.table[i], b.table[i]))
            return false;
    return true;
}

// The new table is built aside and only then committed, so a failed or
// cancelled call leaves the filter as it was.
void kx_GaborFilter::create(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                            double frequency, const kxPair<long>& size, long dcRadius)
{
    const Parameters p{sigma, plateau, angle, frequency, size, dcRadius};
    const bool reject = role_ == eReject;
    const kxPair<long> support = supportOf(p, reject);
    const std::size_t count = static_cast<std::size_t>(support.x() * support.y());
    std::vector<float> built;
    float* builtTable = kf_AlignedTable(built, count);
    fillTable(builtTable, p, support, reject);

    mutating();
    const std::size_t oldCount = static_cast<std::size_t>(state_.supportWidth * state_.supportHeight);
    state_.table = kf_CommitTable(state_.store, state_.table, oldCount, built, builtTable, count);
    state_.supportWidth = support.x();
    state_.supportHeight = support.y();
    state_.sigma = sigma;
    state_.plateau = plateau;
    state_.angle = angle;
    state_.frequency = frequency;
    state_.size = size;
    state_.dcRadius = dcRadius;
    setInitialized(true);
}

void kx_GaborFilter::set(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                         double frequency, const kxPair<long>& size, long dcRadius)
{
    create(sigma, plateau, angle, frequency, size, dcRadius);
}

// A setter throws without a table, and rebuilds it with the stored values of
// the other parameters only when its own value changes.
template <typename Setter>
void kx_GaborFilter::change(Setter setter)
{
    kf_RequireTransferFunction(state_.table);
    Parameters p = parametersOf(state_);
    if (setter(p))
        create(p.sigma, p.plateau, p.angle, p.frequency, p.size, p.dcRadius);
}

#define KX_GABOR_PARAMETER(Name, Type, Field)                                          \
    void kx_GaborFilter::Name(Type value)                                              \
    {                                                                                  \
        change([&](Parameters& p) {                                                    \
            const bool differs = kf_Differs(value, p.Field);                           \
            p.Field = value;                                                           \
            return differs;                                                            \
        });                                                                            \
    }
KX_GABOR_PARAMETER(sigma, const kxPair<double>&, sigma)
KX_GABOR_PARAMETER(plateau, const kxPair<double>&, plateau)
KX_GABOR_PARAMETER(angle, kxRadian, angle)
KX_GABOR_PARAMETER(frequency, double, frequency)
KX_GABOR_PARAMETER(size, const kxPair<long>&, size)
KX_GABOR_PARAMETER(dcRadius, long, dcRadius)
#undef KX_GABOR_PARAMETER

#define KX_GABOR_GETTER(Name, Type, Field)         \
    Type kx_GaborFilter::Name() const              \
    {                                              \
        kf_RequireTransferFunction(state_.table);  \
        return state_.Field;                       \
    }
KX_GABOR_GETTER(sigma, kxPair<double>, sigma)
KX_GABOR_GETTER(plateau, kxPair<double>, plateau)
KX_GABOR_GETTER(angle, kxRadian, angle)
KX_GABOR_GETTER(frequency, double, frequency)
KX_GABOR_GETTER(size, kxPair<long>, size)
KX_GABOR_GETTER(dcRadius, long, dcRadius)
KX_GABOR_GETTER(supportWidth, long, supportWidth)
KX_GABOR_GETTER(supportHeight, long, supportHeight)
#undef KX_GABOR_GETTER

// Pass: out = in x gain inside the support and 0 elsewhere, the band of rows
// recorded so that the inverse can skip the rest, then the DC square
// cleared. Reject: out = in x (1 - gain) inside, in elsewhere, no band, and
// the DC square put back as it was before the call.
void kx_GaborFilter::filter(const float* in, kxFrequencyBuffer& out) const
{
    const long W = out.width(), H = out.height();
    const Rect rect = rectangleOf(state_, W, H);
    float* outData = getFrequencyBufferData(out);
    if (role_ == ePass) {
        maskFrequencyBuffer(out, true, rect.top, rect.bottom);
        walk(state_, rect, W, H, in, outData, kf_ClearElement);
        kf_ClearDcSquare(out, state_.dcRadius);
        return;
    }
    maskFrequencyBuffer(out, false, 0, 0);
    walk(state_, rect, W, H, in, outData, kf_CopyElement);
}

void kx_GaborFilter::apply(kxFrequencyBuffer& buffer) const
{
    kf_RequireInitialized(buffer);
    kf_RequireTransferFunction(state_.table);
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

void kx_GaborFilter::apply(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst) const
{
    kf_RequireInitialized(src);
    kf_RequireTransferFunction(state_.table);
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

void kx_GaborFilter::streamFields(kxArchive& archive)
{
    // Streamed through locals: a load that fails leaves the filter as it was.
    long supportWidth = state_.supportWidth, supportHeight = state_.supportHeight;
    double angle = state_.angle.toDouble(), frequency = state_.frequency;
    kxPair<double> sigma = state_.sigma, plateau = state_.plateau;
    kxPair<long> size = state_.size;
    long dcRadius = state_.dcRadius;
    bool hasTable = state_.table != nullptr;
    std::vector<float> gains;
    if (archive.isStoring() && hasTable)
        gains.assign(state_.table, state_.table + supportWidth * supportHeight);
    archive || supportWidth || supportHeight || angle || frequency;
    archive || sigma || plateau || size;
    archive || dcRadius || hasTable;
    kf_StreamFloats(archive, gains);
    if (archive.isStoring())
        return;

    // A table must be the one its parameters give: the checks and the
    // support of a constructed filter. The gains themselves are kept as
    // stored.
    if (hasTable) {
        const Parameters p{sigma, plateau, kxRadian(angle), frequency, size, dcRadius};
        const kxPair<long> support = kf_CheckLoaded([&] { return supportOf(p, role_ == eReject); });
        if (support != kxPair<long>(supportWidth, supportHeight))
            kf_RefuseLoad("stored support size does not match the stored parameters");
    }
    const unsigned long expected =
        hasTable ? static_cast<unsigned long>(supportWidth) * static_cast<unsigned long>(supportHeight) : 0;
    std::vector<float> store;
    float* table = kf_LoadTable(store, hasTable, expected, gains);
    state_.supportWidth = supportWidth;
    state_.supportHeight = supportHeight;
    state_.angle = kxRadian(angle);
    state_.frequency = frequency;
    state_.sigma = sigma;
    state_.plateau = plateau;
    state_.size = size;
    state_.dcRadius = dcRadius;
    state_.store.swap(store);
    state_.table = table;
}
