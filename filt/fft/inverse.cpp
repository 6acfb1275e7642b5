// Inverse transforms: spectra back to images.
//
// Every worker follows the same steps: run the inverse engine (on the
// caller's buffer in place, or from the caller's buffer into a private
// working area), make a w x h result image with the stored offset and
// transform, scale each element by 1 / (W x H), convert, then give the
// result back its offset with the periodic copy and deliver it into the
// caller's image (bound: only the overlap changes; unbound: the caller's
// image becomes the result). A bound caller image that the result would
// cover exactly is written in place of the result image of its own.
#include "fft/buffer_access.h"
#include "fft/checks.h"
#include "fft/engine/engine.h"
#include "fft/engine/shared_work.h"
#include "fft/engine/variants.h"
#include "fft/periodic_copy.h"
#include "fft/stores.h"

#include <kx/fft.h>
#include <kx/fft_threads.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <type_traits>

namespace {

using Access = kx_FrequencyBufferAccess;

using kxfreq_detail::kf_RequireInitialized;

// The band of rows the engine's inverse transforms: the masked band when the
// buffer has one (rows outside it are zero), otherwise every row.
kf_RowBand inverseBand(const kxFrequencyBuffer& buffer)
{
    if (Access::masked(buffer) != 0)
        return kf_RowBand{static_cast<int>(Access::maskedMiny(buffer)), static_cast<int>(Access::maskedMaxy(buffer))};
    return kf_AllRows(Access::paddedHeight(buffer));
}

kxPair<long> gridOf(const kxFrequencyBuffer& buffer)
{
    return kxPair<long>(Access::paddedWidth(buffer), Access::paddedHeight(buffer));
}

// The engine's inverse of the buffer's store, in place.
void runInverseEngine(kxFrequencyBuffer& work, int threads)
{
    kf_ComplexFFT2D(Access::data(work), gridOf(work), kf_Direction::Inverse, inverseBand(work), threads);
}

// The engine's inverse of the buffer's store into `out`, the buffer only read.
void runInverseEngine(const kxFrequencyBuffer& source, float* out, int threads)
{
    kf_ComplexFFT2DFrom(Access::data(source), out, gridOf(source), kf_Direction::Inverse, inverseBand(source),
                        threads);
}

// What the workers read: the unscaled spatial data, element (x, y) at
// data[2 * (y * W + x)], with the buffer's sizes, offset and transform.
struct SpatialView {
    const float* data;
    long W, H, w, h;
    kxPair<long> offset;
    kx2XformCache transform;
    int threads = kf_CallingThreadOnly;   // for conversions row by row
    // Whether conversions shared among threads poll: not while they write
    // the caller's own image.
    bool stops = true;
};

SpatialView viewOf(const kxFrequencyBuffer& buffer, const float* data)
{
    return SpatialView{data,
                       Access::paddedWidth(buffer),
                       Access::paddedHeight(buffer),
                       Access::requestedWidth(buffer),
                       Access::requestedHeight(buffer),
                       Access::offset(buffer),
                       Access::transform(buffer)};
}

// Steps common to every inverse: where the spatial result of the call is.
// In place (inPlace non-null, the caller's buffer) the engine overwrites the
// buffer's store; otherwise it reads the buffer and writes a private working
// area, the buffer untouched. A buffer that already holds its spatial result
// is read as it is. A buffer overwritten by a call that does not complete is
// left not initialized.
class SpatialData {
public:
    SpatialData(const kxFrequencyBuffer& buffer, kxFrequencyBuffer* inPlace, int threads)
        : inPlace_(Access::inverseComputed(buffer) ? nullptr : inPlace), written_(inPlace_)
    {
        if (Access::inverseComputed(buffer)) {
            view_ = viewOf(buffer, Access::data(buffer));
        } else if (inPlace_) {
            runInverseEngine(*inPlace_, threads);
            view_ = viewOf(buffer, Access::data(buffer));
        } else {
            work_ = std::make_unique<kf_WorkArea>(Access::paddedWidth(buffer), Access::paddedHeight(buffer));
            runInverseEngine(buffer, work_->data(), threads);
            view_ = viewOf(buffer, work_->data());
        }
        view_.threads = threads;
    }

    const SpatialView& view() const { return view_; }

    // Marks a buffer transformed in place by this call as holding the
    // spatial result; the call is then complete as far as the buffer goes.
    void markComputed()
    {
        if (inPlace_)
            Access::inverseComputed(*inPlace_, true);
        written_.done();
    }

private:
    kxFrequencyBuffer* inPlace_;   // the buffer this call overwrites, if any
    kf_ResetUnlessDone written_;
    std::unique_ptr<kf_WorkArea> work_;
    SpatialView view_{};
};

// 1 / (H x W): the product as a signed 32-bit integer, the division in
// double, the result kept as a float.
float inverseScale(const SpatialView& view)
{
    const std::int32_t count = static_cast<std::int32_t>(view.H * view.W);
    return static_cast<float>(1.0 / count);
}

// When a result image takes the stored offset. The 8-bit magnitude-with-
// angle worker alone takes it at the end, so that its periodic copy starts
// from offset (0, 0).
enum class OffsetTiming { AtStart, AtEnd };

// Whether kfPelCopy of the w x h result would overwrite exactly every pixel
// of the caller's image: a bound image of the result's size at the result's
// offset. The result must also need no periodic copy (stored offset (0, 0)).
bool coversExactly(const kx_PelBuffer& caller, const SpatialView& view)
{
    const kxPair<long> origin(0, 0);
    return caller.isBound() && caller.width() == view.w && caller.height() == view.h && view.offset == origin &&
           caller.offset() == origin;
}

// Where a result is built and how it is handed over. The result is built in
// an image of its own; at the end a bound caller image gets it through
// kfPelCopy (only the overlap changes) and an unbound one becomes it. Until
// then the caller's image is not touched, so a call that stops part way
// leaves an unbound image unbound and a bound one as it was.
// A bound caller image the result covers exactly is the result image itself
// when `straight` allows it (no image of its own, no copy): the callers write
// it only after their last poll, so the rule above still holds.
template <typename T>
class ResultImage {
public:
    // Makes the w x h result with the stored transform and, at the start,
    // the stored offset. `straight`: whether the result may be written
    // straight into the caller's image.
    ResultImage(kxPelBuffer<T>& caller, const SpatialView& view, OffsetTiming timing, bool straight = true)
        : caller_(caller), bound_(caller.isBound()), intoCaller_(straight && coversExactly(caller, view)),
          storedOffset_(view.offset), storedTransform_(view.transform)
    {
        if (intoCaller_)
            return;
        local_ = kxPelBuffer<T>(view.w, view.h, 32);
        if (timing == OffsetTiming::AtStart)
            local_.offset(storedOffset_);
        local_.xformCache() = storedTransform_;
    }

    kxPelBuffer<T>& image() { return intoCaller_ ? caller_ : local_; }
    bool intoCaller() const { return intoCaller_; }

    // Gives the result back the stored offset: a non-zero offset goes
    // through the periodic copy into a fresh image at (0, 0) that then takes
    // the stored offset. The stored offset is set at the end also when it is
    // (0, 0), for the worker that takes it at the end.
    void restoreOffset()
    {
        if (intoCaller_)
            return;
        if (storedOffset_ == kxPair<long>(0, 0)) {
            local_.offset(storedOffset_);
            return;
        }
        kxPelBuffer<T> laid(local_.width(), local_.height(), 32);
        kf_PeriodicCopy<T>(local_, laid, true);
        laid.offset(storedOffset_);
        // The caller gets the stored transform whether or not its image was
        // bound: an image that comes back from a transform keeps its client
        // coordinates.
        laid.xformCache() = storedTransform_;
        local_ = laid;
    }

    // Hands the result to the caller.
    void deliver()
    {
        if (intoCaller_)
            return;
        if (bound_)
            kfPelCopy<T>(local_, caller_);
        else
            caller_ = local_;
    }

private:
    kxPelBuffer<T>& caller_;
    bool bound_;
    bool intoCaller_;
    kxPelBuffer<T> local_;
    kxPair<long> storedOffset_;
    kx2XformCache storedTransform_;
};

// Visits rows [y0, y1) of the first h rows, first w elements each, of the
// spatial data, with the result pixel pointer of each row.
template <typename T, typename Visit>
void forEachElementInRows(const SpatialView& view, const kxPelBuffer<T>& image, long y0, long y1, Visit visit)
{
    const float* row = view.data + 2 * y0 * view.W;
    T* out = image.pointToOffset() + y0 * image.rowUpdate();
    for (long y = y0; y < y1; ++y, row += 2 * view.W, out += image.rowUpdate())
        for (long x = 0; x < view.w; ++x)
            visit(row[2 * x], row[2 * x + 1], out[x]);
}

// Visits every element in order, on the calling thread.
template <typename T, typename Visit>
void forEachElement(const SpatialView& view, const kxPelBuffer<T>& image, Visit visit)
{
    forEachElementInRows(view, image, 0, view.h, visit);
}

// Runs rows(y0, y1) over blocks of the view's rows, on the view's threads.
template <typename Rows>
void inRowBlocks(const SpatialView& view, Rows rows)
{
    constexpr long kBlockRows = 64;
    const int blocks = static_cast<int>((view.h + kBlockRows - 1) / kBlockRows);
    auto block = [&](int block, int) { rows(block * kBlockRows, std::min(view.h, (block + 1) * kBlockRows)); };
    if (view.stops)
        kf_RunShared(view.threads, blocks, block, [](int) {});
    else
        kf_RunSharedWithoutStops(view.threads, blocks, block);
}

// A conversion of each element on its own (`convert` keeps no state), row
// blocks shared among the view's threads.
template <typename T, typename Convert>
void convertEachElement(const SpatialView& view, const kxPelBuffer<T>& image, Convert convert)
{
    inRowBlocks(view, [&](long y0, long y1) { forEachElementInRows(view, image, y0, y1, convert); });
}

// The engine variant's own conversion of magnitudes to pixels, row by row,
// when it has one (`convert` is not null): the same values as the loops
// below.
template <typename T, typename Convert>
bool fillWith(Convert convert, const SpatialView& view, const kxPelBuffer<T>& image, float s)
{
    if (!convert)
        return false;
    inRowBlocks(view, [&](long y0, long y1) {
        for (long y = y0; y < y1; ++y)
            convert(view.data + 2 * y * view.W, view.w, s, image.pointToOffset() + y * image.rowUpdate());
    });
    return true;
}

bool fillFast(const SpatialView& view, const kxPelBuffer<unsigned char>& image, float s)
{
    return fillWith(kf_ActiveEngineVariant().magnitudes8, view, image, s);
}

bool fillFast(const SpatialView& view, const kxPelBuffer<unsigned short>& image, float s)
{
    return fillWith(kf_ActiveEngineVariant().magnitudes16, view, image, s);
}

// Pixel conversion of a magnitude, per pixel type. Integer pixels truncate
// toward zero and keep their low bits, without clamping: a value above the
// range wraps.
template <typename T> struct Magnitude;

template <typename Integer, long Range>
struct IntegerMagnitude {
    static constexpr float kRange = static_cast<float>(Range);
    static Integer store(double value) { return static_cast<Integer>(kf_TruncateToInt64(value)); }

    static void fill(const SpatialView& buffer, const kxPelBuffer<Integer>& image, float s, bool scale)
    {
        if (!scale) {
            if (fillFast(buffer, image, s))
                return;
            convertEachElement(buffer, image, [s](float re, float im, Integer& pixel) {
                const float m = std::sqrt(re * re + im * im) * s;
                pixel = store(m + 0.5);
            });
            return;
        }
        // Stretch the image's own range of magnitudes to the full pixel range.
        float minimum = 1e20f, maximum = -1e20f;
        forEachElement(buffer, image, [&](float re, float im, Integer&) {
            const float squared = re * re + im * im;
            if (!(squared >= minimum))
                minimum = squared;
            if (squared > maximum)
                maximum = squared;
        });
        const float lo = std::sqrt(minimum) * s;
        const float hi = std::sqrt(maximum) * s;
        const float gain = hi == lo ? kRange : static_cast<float>(Range / static_cast<double>(hi - lo));
        convertEachElement(buffer, image, [=](float re, float im, Integer& pixel) {
            const float m = std::sqrt(re * re + im * im) * s;
            pixel = store((m - lo) * gain + 0.5);
        });
    }
};

template <> struct Magnitude<unsigned char> : IntegerMagnitude<unsigned char, 255> {};
template <> struct Magnitude<unsigned short> : IntegerMagnitude<unsigned short, 65535> {};

template <> struct Magnitude<double> {
    // Double pixels take the magnitude as it is; `scale` does not apply.
    static void fill(const SpatialView& buffer, const kxPelBuffer<double>& image, float s, bool)
    {
        if (fillWith(kf_ActiveEngineVariant().magnitudesDouble, buffer, image, s))
            return;
        convertEachElement(buffer, image, [s](float re, float im, double& pixel) {
            pixel = static_cast<double>(std::sqrt(re * re + im * im) * s);
        });
    }
};

double angleOf(float re, float im) { return static_cast<double>(std::atan2(im, re)); }

// Bit 1: the real part is negative; bit 2: the imaginary part is. A NaN part
// counts as not negative here.
unsigned char quadrantOf(float re, float im)
{
    return static_cast<unsigned char>((0 > re ? 1 : 0) + (0 > im ? 2 : 0));
}

// The double-magnitude worker's own test: a bit is set when the part is not
// greater than or equal to zero, so a NaN part counts as negative there.
unsigned char quadrantNanNegative(float re, float im)
{
    return static_cast<unsigned char>((!(re >= 0) ? 1 : 0) + (!(im >= 0) ? 2 : 0));
}

// A second image computed from the spatial data pixel by pixel, or none for
// a null destination. Its result image is made at the start of the call,
// with the first one's, so that nothing is allocated between writing one
// caller image and the other.
template <typename U, U (*Compute)(float, float)>
class SecondImage {
public:
    explicit SecondImage(kxPelBuffer<U>* destination) : destination_(destination) {}

    bool sharesPixelsWith(const kx_PelBuffer& image) const
    {
        return destination_ && destination_->sharesPixels(image);
    }

    void start(const SpatialView& view, bool straight)
    {
        if (destination_)
            result_.emplace(*destination_, view, OffsetTiming::AtStart, straight);
    }

    void finish(const SpatialView& view)
    {
        if (!result_)
            return;
        forEachElement(view, result_->image(), [](float re, float im, U& pixel) { pixel = Compute(re, im); });
        result_->restoreOffset();
        result_->deliver();
    }

private:
    kxPelBuffer<U>* destination_;
    std::optional<ResultImage<U>> result_;
};

using AngleImage = SecondImage<double, angleOf>;
using Quadrant = SecondImage<unsigned char, quadrantOf>;
using QuadrantNanNegative = SecondImage<unsigned char, quadrantNanNegative>;

// The magnitude workers with an optional angle or quadrant image: they
// differ only in their pixel type, second image and offset timing. The
// const forms pass no in-place buffer and only read `buffer`.
// Two caller images on the same pixels both take their results at the end,
// in the order that decides what those pixels hold: the second, then the
// first.
template <typename T, typename Second>
void inverseWorker(const kxFrequencyBuffer& buffer, kxFrequencyBuffer* inPlace, kxPelBuffer<T>& image,
                   Second second, bool scale, OffsetTiming timing, int threads = kf_CallingThreadOnly)
{
    kf_RequireInitialized(buffer);
    SpatialData spatial(buffer, inPlace, threads);
    const bool straight = !second.sharesPixelsWith(image);
    ResultImage<T> result(image, spatial.view(), timing, straight);
    second.start(spatial.view(), straight);
    kxAttention::check();
    SpatialView data = spatial.view();
    data.stops = !result.intoCaller();
    Magnitude<T>::fill(data, result.image(), inverseScale(data), scale);
    second.finish(data);
    spatial.markComputed();
    result.restoreOffset();
    result.deliver();
}

// Real and imaginary parts, each scaled: two images and no magnitude, so
// this form has its own loop between the shared steps. Both caller images
// take the stored transform, bound or not.
void realImaginaryWorker(const kxFrequencyBuffer& buffer, kxFrequencyBuffer* inPlace, kxPelBuffer<double>& real,
                         kxPelBuffer<double>& imag)
{
    kf_RequireInitialized(buffer);
    SpatialData spatial(buffer, inPlace, kf_CallingThreadOnly);
    const SpatialView& data = spatial.view();
    // Images on the same pixels take their results at the end, in order.
    const bool straight = !real.sharesPixels(imag);
    ResultImage<double> re(real, data, OffsetTiming::AtStart, straight);
    ResultImage<double> im(imag, data, OffsetTiming::AtStart, straight);
    kxAttention::check();
    const float s = inverseScale(data);
    const float* row = data.data;
    double* reRow = re.image().pointToOffset();
    double* imRow = im.image().pointToOffset();
    for (long y = 0; y < data.h;
         ++y, row += 2 * data.W, reRow += re.image().rowUpdate(), imRow += im.image().rowUpdate())
        for (long x = 0; x < data.w; ++x) {
            reRow[x] = static_cast<double>(row[2 * x] * s);
            imRow[x] = static_cast<double>(row[2 * x + 1] * s);
        }
    re.restoreOffset();
    im.restoreOffset();
    spatial.markComputed();
    re.deliver();
    im.deliver();
    real.xformCache() = data.transform;
    imag.xformCache() = data.transform;
}

// A second image of a buffer that already holds its spatial result.
template <typename Second>
void computeAlone(Second second, const kxFrequencyBuffer& buffer)
{
    const SpatialView view = viewOf(buffer, Access::data(buffer));
    second.start(view, true);
    second.finish(view);
}

}  // namespace

// Exported workers: they make the entry points' first check themselves, so a
// buffer without data (reset, or left by a stopped transform) is refused
// before its store is read.
void kf_ComputeAngleImage(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& angle)
{
    kf_RequireInitialized(buffer);
    computeAlone(AngleImage(&angle), buffer);
}

void kf_ComputeQuadrantImage(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& quadrant)
{
    kf_RequireInitialized(buffer);
    computeAlone(Quadrant(&quadrant), buffer);
}

namespace {

kxFrequencyBuffer* inPlaceBuffer(kxFrequencyBuffer& buffer, bool inPlace) { return inPlace ? &buffer : nullptr; }

// The magnitude forms with an optional angle image: the 8-bit one alone
// takes the stored offset at the end.
template <typename T>
void angleWorker(const kxFrequencyBuffer& buffer, kxFrequencyBuffer* inPlace, kxPelBuffer<T>& image,
                 kxPelBuffer<double>* angle, bool scale, int threads)
{
    const OffsetTiming timing = std::is_same<T, unsigned char>::value ? OffsetTiming::AtEnd : OffsetTiming::AtStart;
    inverseWorker(buffer, inPlace, image, AngleImage(angle), scale, timing, threads);
}

}  // namespace

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image, kxPelBuffer<double>* angle,
                   bool scale, bool inPlace)
{
    angleWorker(buffer, inPlaceBuffer(buffer, inPlace), image, angle, scale, kf_CallingThreadOnly);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image, kxPelBuffer<double>* angle,
                   bool scale, bool inPlace)
{
    angleWorker(buffer, inPlaceBuffer(buffer, inPlace), image, angle, scale, kf_CallingThreadOnly);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, kxPelBuffer<double>* angle, bool scale,
                   bool inPlace)
{
    angleWorker(buffer, inPlaceBuffer(buffer, inPlace), image, angle, scale, kf_CallingThreadOnly);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image,
                   kxPelBuffer<unsigned char>& quadrant, bool scale, bool inPlace)
{
    inverseWorker(buffer, inPlaceBuffer(buffer, inPlace), image, Quadrant(&quadrant), scale, OffsetTiming::AtStart);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image,
                   kxPelBuffer<unsigned char>& quadrant, bool scale, bool inPlace)
{
    inverseWorker(buffer, inPlaceBuffer(buffer, inPlace), image, Quadrant(&quadrant), scale, OffsetTiming::AtStart);
}

// The double worker's quadrant code counts a NaN part as negative; `scale`
// does not apply to double magnitudes.
void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, kxPelBuffer<unsigned char>& quadrant,
                   bool scale, bool inPlace)
{
    inverseWorker(buffer, inPlaceBuffer(buffer, inPlace), image, QuadrantNanNegative(&quadrant), scale,
                  OffsetTiming::AtStart);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image, kxPelBuffer<double>* angle,
                   bool scale)
{
    angleWorker(buffer, nullptr, image, angle, scale, kf_CallingThreadOnly);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image, kxPelBuffer<double>* angle,
                   bool scale)
{
    angleWorker(buffer, nullptr, image, angle, scale, kf_CallingThreadOnly);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, kxPelBuffer<double>* angle,
                   bool scale)
{
    angleWorker(buffer, nullptr, image, angle, scale, kf_CallingThreadOnly);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image,
                   kxPelBuffer<unsigned char>& quadrant, bool scale)
{
    inverseWorker(buffer, nullptr, image, Quadrant(&quadrant), scale, OffsetTiming::AtStart);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image,
                   kxPelBuffer<unsigned char>& quadrant, bool scale)
{
    inverseWorker(buffer, nullptr, image, Quadrant(&quadrant), scale, OffsetTiming::AtStart);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, kxPelBuffer<unsigned char>& quadrant,
                   bool scale)
{
    inverseWorker(buffer, nullptr, image, QuadrantNanNegative(&quadrant), scale, OffsetTiming::AtStart);
}

void kfInverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& real, kxPelBuffer<double>& imag, bool inPlace)
{
    realImaginaryWorker(buffer, inPlaceBuffer(buffer, inPlace), real, imag);
}

void kfInverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& real, kxPelBuffer<double>& imag)
{
    realImaginaryWorker(buffer, nullptr, real, imag);
}

void kfInverseFFT(kxFrequencyBuffer& src, kxFrequencyBuffer& dst, bool inPlace)
{
    kf_RequireInitialized(src);
    if (!inPlace && !Access::inverseComputed(src) && &src != &dst) {
        kfInverseFFT(static_cast<const kxFrequencyBuffer&>(src), dst);
        return;
    }
    // In place, or a spatial result computed earlier: the source's store
    // holds the result, and the destination becomes a copy of it.
    const bool alreadyComputed = Access::inverseComputed(src);
    kf_ResetUnlessDone writtenSource(alreadyComputed ? nullptr : &src);
    kf_ResetUnlessDone writtenDestination(&src == &dst ? nullptr : &dst);
    if (!alreadyComputed)
        runInverseEngine(src, kf_CallingThreadOnly);
    dst = src;
    Access::inverseComputed(dst, false);
    Access::masked(dst, 0);
    Access::inverseComputed(src, true);
    writtenSource.done();
    writtenDestination.done();
}

void kfInverseFFT(const kxFrequencyBuffer& src, kxFrequencyBuffer& dst)
{
    kf_RequireInitialized(src);
    if (&src == &dst) {
        // The caller's own buffer as destination: transformed where it is.
        kf_ResetUnlessDone written(&dst);
        if (!Access::inverseComputed(dst))
            runInverseEngine(dst, kf_CallingThreadOnly);
        Access::inverseComputed(dst, false);
        Access::masked(dst, 0);
        written.done();
        return;
    }
    kf_ResetUnlessDone written(&dst);
    Access::setAndAllocate(dst, Access::requestedWidth(src), Access::requestedHeight(src));
    Access::transform(dst, Access::transform(src));
    Access::offset(dst, Access::offset(src));
    Access::band(dst, 0, Access::maskedMiny(src), Access::maskedMaxy(src));
    if (Access::inverseComputed(src))
        std::memcpy(Access::data(dst), Access::data(src),
                    sizeof(float) * 2 * Access::paddedWidth(src) * Access::paddedHeight(src));
    else
        runInverseEngine(src, Access::data(dst), kf_CallingThreadOnly);
    written.done();
}

// The forms on several threads: the engine's passes are shared, the
// conversion to pixels runs on the calling thread.
void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image, bool scale, bool inPlace,
                   kxTransformThreads threads)
{
    angleWorker(buffer, inPlaceBuffer(buffer, inPlace), image, nullptr, scale, threads.count);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image, bool scale, bool inPlace,
                   kxTransformThreads threads)
{
    angleWorker(buffer, inPlaceBuffer(buffer, inPlace), image, nullptr, scale, threads.count);
}

void kf_InverseFFT(kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, bool scale, bool inPlace,
                   kxTransformThreads threads)
{
    angleWorker(buffer, inPlaceBuffer(buffer, inPlace), image, nullptr, scale, threads.count);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned char>& image, bool scale,
                   kxTransformThreads threads)
{
    angleWorker(buffer, nullptr, image, nullptr, scale, threads.count);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<unsigned short>& image, bool scale,
                   kxTransformThreads threads)
{
    angleWorker(buffer, nullptr, image, nullptr, scale, threads.count);
}

void kf_InverseFFT(const kxFrequencyBuffer& buffer, kxPelBuffer<double>& image, bool scale,
                   kxTransformThreads threads)
{
    angleWorker(buffer, nullptr, image, nullptr, scale, threads.count);
}
