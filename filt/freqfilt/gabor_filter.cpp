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
#include "fft/frequency_index.h"

#include <kx/freqfilt.h>

#include <algorithm>
#include <cmath>

using namespace kxfreq_detail;

namespace {

// A table beyond this many gains is refused rather than allocated: it would
// take over a gigabyte for a lobe far wider than any buffer.
constexpr double kMaxTableGains = 268435456.0;

using Parameters = kx_GaborParameters;

long makeOdd(long value) { return value % 2 == 0 ? value + 1 : value; }

// The support a table for these parameters has, after the checks in their
// order (frequency, sigma, plateau, radius, size x, size y, table size). The
// same function sizes a new table and checks a loaded one.
kxPair<long> supportOf(const Parameters& p, bool reject)
{
    using Arg = kxFrequencyDefs::InvalidArgument;
    kf_Require<Arg>(p.frequency >= 0.0 && p.frequency <= 0.5, kFrequencyOutOfRange);
    // Written as refusals of the bad values, so that a NaN sigma or plateau
    // passes, as it always has.
    kf_Require<Arg>(!(p.sigma.x() <= 0.0 || p.sigma.y() <= 0.0), kGaborSigma);
    kf_Require<Arg>(!(p.plateau.x() < 0.0 || p.plateau.y() < 0.0), kGaborPlateau);
    kf_RequireDcRadius(p.dcRadius, reject);
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
    kf_Require<Arg>(width * height < kMaxTableGains, kTableTooLarge);
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

Rect rectangleOf(const Parameters& p, const kxPair<long>& support, long width, long height)
{
    const long hw = width >> 1, hh = height >> 1;
    const double r = p.frequency * static_cast<double>(width);
    const double aspect = static_cast<double>(height) / static_cast<double>(width);
    // The offset is truncated before the centre is added; the table was laid
    // out from the fractional part after adding it. For a negative
    // non-integer offset the two disagree by one bin: long-standing
    // behaviour, kept.
    const long cx = static_cast<long>(std::trunc(std::cos(p.angle.toDouble()) * r)) + hw;
    const long cy = static_cast<long>(std::trunc(std::sin(p.angle.toDouble()) * r * aspect)) + hh;
    return Rect{cx - (support.x() >> 1), cx + (support.x() >> 1), cy - (support.y() >> 1), cy + (support.y() >> 1)};
}

// Walks the buffer in storage order. Elements in the rectangle get
// inside(source element, destination element, gain), the others
// outside(source element, destination element). src may be dst.
template <typename Outside>
void walkRect(const float* table, long supportWidth, const Rect& rect, long width, long height, const float* src,
              float* dst, Outside outside)
{
    for (long r = 0; r < height; ++r) {
        kf_PollEvery16(r);
        const long Y = kf_CentredIndex(r, height);
        const bool rowInside = rect.top <= Y && Y <= rect.bottom;
        const long tableRow = (Y - rect.top) * supportWidth;
        for (long c = 0; c < width; ++c) {
            const long X = kf_CentredIndex(c, width);
            const long i = 2 * (r * width + c);
            if (rowInside && rect.left <= X && X < rect.right)
                kf_ScaleElement(src + i, dst + i, table[tableRow + X - rect.left]);
            else
                outside(src + i, dst + i);
        }
    }
}

}  // namespace

kx_GaborFilter::kx_GaborFilter(const kx_GaborFilter& other) : kxPersistent(), kxRepBase(), kx_TableFilter(other)
{
    *this = other;
}

kx_GaborFilter& kx_GaborFilter::operator=(const kx_GaborFilter& other)
{
    if (&other != this && assignTable(other)) {
        parameters_ = other.parameters_;
        support_ = other.support_;
    }
    return *this;
}

kx_GaborFilter::~kx_GaborFilter() = default;

bool kx_GaborFilter::sameParameters(const kx_TableFilter& other) const
{
    const kx_GaborFilter& o = static_cast<const kx_GaborFilter&>(other);
    const Parameters& a = parameters_;
    const Parameters& b = o.parameters_;
    return !(support_ != o.support_ || a.angle != b.angle || kf_Differs(a.frequency, b.frequency) || a.sigma != b.sigma ||
             a.plateau != b.plateau || a.size != b.size || a.dcRadius != b.dcRadius);
}

// The new table is built aside and only then committed, so a failed or
// cancelled call leaves the filter as it was.
void kx_GaborFilter::create(const Parameters& p)
{
    const bool reject = role() == eReject;
    const kxPair<long> support = supportOf(p, reject);
    kx_GainTable built(static_cast<std::size_t>(support.x() * support.y()));
    fillTable(built.data(), p, support, reject);

    mutating();
    table().commit(built);
    support_ = support;
    parameters_ = p;
    setInitialized(true);
}

void kx_GaborFilter::set(const kxPair<double>& sigma, const kxPair<double>& plateau, kxRadian angle,
                         double frequency, const kxPair<long>& size, long dcRadius)
{
    create(Parameters{sigma, plateau, angle, frequency, size, dcRadius});
}

// A setter throws without a table, and rebuilds it with the stored values of
// the other parameters only when its own value changes.
template <typename Change>
void kx_GaborFilter::change(Change change)
{
    Parameters p = parameters();
    if (change(p))
        create(p);
}

const kx_GaborParameters& kx_GaborFilter::parameters() const
{
    kf_RequireTransferFunction(table().data());
    return parameters_;
}

void kx_GaborFilter::sigma(const kxPair<double>& v) { change([&](Parameters& p) { return kf_Assign(p.sigma, v); }); }
void kx_GaborFilter::plateau(const kxPair<double>& v) { change([&](Parameters& p) { return kf_Assign(p.plateau, v); }); }
void kx_GaborFilter::angle(kxRadian v) { change([&](Parameters& p) { return kf_Assign(p.angle, v); }); }
void kx_GaborFilter::frequency(double v) { change([&](Parameters& p) { return kf_Assign(p.frequency, v); }); }
void kx_GaborFilter::size(const kxPair<long>& v) { change([&](Parameters& p) { return kf_Assign(p.size, v); }); }
void kx_GaborFilter::dcRadius(long v) { change([&](Parameters& p) { return kf_Assign(p.dcRadius, v); }); }

kxPair<double> kx_GaborFilter::sigma() const { return parameters().sigma; }
kxPair<double> kx_GaborFilter::plateau() const { return parameters().plateau; }
kxRadian kx_GaborFilter::angle() const { return parameters().angle; }
double kx_GaborFilter::frequency() const { return parameters().frequency; }
kxPair<long> kx_GaborFilter::size() const { return parameters().size; }
long kx_GaborFilter::dcRadius() const { return parameters().dcRadius; }
long kx_GaborFilter::supportWidth() const
{
    kf_RequireTransferFunction(table().data());
    return support_.x();
}

long kx_GaborFilter::supportHeight() const
{
    kf_RequireTransferFunction(table().data());
    return support_.y();
}

// Pass: out = in x gain inside the support and 0 elsewhere, with the band of
// rows recorded so that the inverse can skip the rest. Reject: out = in x
// (1 - gain) inside, in elsewhere, no band.
void kx_GaborFilter::walk(const float* in, kxFrequencyBuffer& out) const
{
    const long W = out.width(), H = out.height();
    const Rect rect = rectangleOf(parameters_, support_, W, H);
    float* outData = getFrequencyBufferData(out);
    if (role() == ePass) {
        maskFrequencyBuffer(out, true, rect.top, rect.bottom);
        walkRect(table().data(), support_.x(), rect, W, H, in, outData, kf_ClearElement);
    } else {
        maskFrequencyBuffer(out, false, 0, 0);
        walkRect(table().data(), support_.x(), rect, W, H, in, outData, kf_CopyElement);
    }
}

void kx_GaborFilter::streamFields(kxArchive& archive)
{
    // Streamed through locals: a load that fails leaves the filter as it was.
    long supportWidth = support_.x(), supportHeight = support_.y();
    Parameters p = parameters_;
    double angle = p.angle.toDouble();
    bool hasTable = table().data() != nullptr;
    std::vector<float> gains = archive.isStoring() ? table().stored() : std::vector<float>();
    archive || supportWidth || supportHeight || angle || p.frequency;
    archive || p.sigma || p.plateau || p.size;
    archive || p.dcRadius || hasTable;
    kf_StreamFloats(archive, gains);
    if (archive.isStoring())
        return;
    p.angle = kxRadian(angle);

    // A table must be the one its parameters give: the checks and the
    // support of a constructed filter. The gains themselves are kept as
    // stored.
    const kxPair<long> support(supportWidth, supportHeight);
    if (hasTable && kf_CheckLoaded([&] { return supportOf(p, role() == eReject); }) != support)
        kf_RefuseLoad("stored support size does not match the stored parameters");
    const unsigned long expected =
        hasTable ? static_cast<unsigned long>(supportWidth) * static_cast<unsigned long>(supportHeight) : 0;
    table().load(hasTable, expected, gains);
    support_ = support;
    parameters_ = p;
}
