// Inverse transforms into a bound caller image that the result covers
// exactly are written straight into its pixels: every form must give the
// pixels it gives into an unbound image, leave the caller's offset,
// transform and pixels outside its window alone, and, when stopped at any
// poll, leave the caller's pixels as they were.
#include "test_helpers.h"

#include <kx/core/attention.h>
#include <kx/fft.h>
#include <kx/fft_threads.h>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KX_UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KX_UNDER_SANITIZER 1
#endif
#endif

namespace {

// The sanitizers' builds run the same checks with the stretched forms and
// the second sentinel left out, to stay within seconds.
#ifdef KX_UNDER_SANITIZER
const std::vector<bool> kScales{false};
const std::vector<int> kSentinels{0};
#else
const std::vector<bool> kScales{false, true};
const std::vector<int> kSentinels{0, 1};
#endif

using kxtest::imageFrom;

// Sentinels: a result pixel may equal one of them by chance, never both.
template <typename T>
T sentinel(int which);
template <>
unsigned char sentinel<unsigned char>(int which)
{
    return which == 0 ? 0xA5 : 0x5A;
}
template <>
unsigned short sentinel<unsigned short>(int which)
{
    return which == 0 ? 0xA5A5 : 0x5A5A;
}
template <>
double sentinel<double>(int which)
{
    return which == 0 ? std::numeric_limits<double>::quiet_NaN() : -12345.25;
}

kx2XformCache someTransform()
{
    kx2XformCache cache;
    cache.xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(kxRadian(0), kxRadian(0), 2.0, 3.0), kxVector<2>(1, 1))));
    return cache;
}

// A bound w x h image at `offset`, every pixel of its rows (the padding
// beyond the width as well: rows of 4096 bytes) set to `value`, with a
// transform of its own.
template <typename T>
kxPelBuffer<T> sentinelImage(long w, long h, kxPair<long> offset, T value)
{
    kxPelBuffer<T> image(w, h, 4096);
    for (long y = 0; y < h; ++y)
        std::fill(image.pointToOffset() + y * image.rowUpdate(), image.pointToOffset() + (y + 1) * image.rowUpdate(),
                  value);
    image.offset(offset);
    image.xformCache() = someTransform();
    return image;
}

template <typename T>
bool sameBytes(const T& a, const T& b)
{
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Every pixel of `image` (window and padding) is either the reference's
// pixel at the same client position, where the reference covers it, or
// `value`.
template <typename T>
::testing::AssertionResult holds(const kxPelBuffer<T>& image, const kxPelBuffer<T>& reference, T value)
{
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.rowUpdate(); ++x) {
            const long rx = x + image.offset().x() - reference.offset().x();
            const long ry = y + image.offset().y() - reference.offset().y();
            const bool covered =
                x < image.width() && rx >= 0 && ry >= 0 && rx < reference.width() && ry < reference.height();
            const T expected = covered ? reference(rx, ry) : value;
            if (!sameBytes(image.pointToOffset()[y * image.rowUpdate() + x], expected))
                return ::testing::AssertionFailure() << "pixel " << x << ", " << y << (covered ? " (result)" : "");
        }
    return ::testing::AssertionSuccess();
}

// The same size, offset and pixel bytes in the window.
template <typename T>
::testing::AssertionResult sameWindow(const kxPelBuffer<T>& a, const kxPelBuffer<T>& b)
{
    if (a.width() != b.width() || a.height() != b.height() || a.offset() != b.offset())
        return ::testing::AssertionFailure() << "another size or offset";
    for (long y = 0; y < a.height(); ++y)
        if (std::memcmp(&a(0, y), &b(0, y), sizeof(T) * static_cast<std::size_t>(a.width())) != 0)
            return ::testing::AssertionFailure() << "row " << y;
    return ::testing::AssertionSuccess();
}

template <typename T>
kxPelBuffer<T> testImage(long w, long h, kxPair<long> offset)
{
    auto image =
        imageFrom<T>(w, h, [](long x, long y) { return static_cast<T>((x * 37 + y * 91 + (x * y) % 17) % 251); });
    image.offset(offset);
    image.xformCache() = someTransform();
    return image;
}

kxPair<long> shifted(kxPair<long> p, long dx, long dy)
{
    return kxPair<long>(p.x() + dx, p.y() + dy);
}

kxFrequencyBuffer spectrumOf(long w, long h, kxPair<long> offset)
{
    kxFrequencyBuffer spectrum;
    kfForwardFFT<unsigned char>(testImage<unsigned char>(w, h, offset), spectrum);
    return spectrum;
}

enum class Form { Plain, Angle, Quadrant, Threads };
const char* const kFormNames[] = {"plain", "angle", "quadrant", "threads"};

// One magnitude form: the const one, or the in-place one on a copy of the
// spectrum.
struct Call {
    Form form;
    bool constForm;
    bool scale;

    template <typename T>
    void operator()(const kxFrequencyBuffer& spectrum, kxPelBuffer<T>& image, kxPelBuffer<double>& angle,
                    kxPelBuffer<unsigned char>& quadrant) const
    {
        if (constForm) {
            run(spectrum, image, angle, quadrant);
        }
        else {
            kxFrequencyBuffer copy = spectrum;
            run(copy, image, angle, quadrant);
        }
    }

    std::string name() const
    {
        return std::string(kFormNames[static_cast<int>(form)]) + (constForm ? ", const" : ", in place") +
               (scale ? ", scale" : "");
    }

private:
    template <typename T>
    void run(const kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, kxPelBuffer<double>& angle,
             kxPelBuffer<unsigned char>& quadrant) const
    {
        switch (form) {
        case Form::Plain: kfInverseFFT<T>(buffer, image, scale); break;
        case Form::Angle: kfInverseFFTAngle<T>(buffer, image, angle, scale); break;
        case Form::Quadrant: kfInverseFFTQuadrant<T>(buffer, image, quadrant, scale); break;
        case Form::Threads: kfInverseFFT<T>(buffer, image, scale, kxTransformThreads(3)); break;
        }
    }
    template <typename T>
    void run(kxFrequencyBuffer& buffer, kxPelBuffer<T>& image, kxPelBuffer<double>& angle,
             kxPelBuffer<unsigned char>& quadrant) const
    {
        switch (form) {
        case Form::Plain: kfInverseFFT<T>(buffer, image, scale, true); break;
        case Form::Angle: kfInverseFFTAngle<T>(buffer, image, angle, scale, true); break;
        case Form::Quadrant: kfInverseFFTQuadrant<T>(buffer, image, quadrant, scale, true); break;
        case Form::Threads: kfInverseFFT<T>(buffer, image, scale, true, kxTransformThreads(3)); break;
        }
    }
};

std::vector<Call> everyCall()
{
    std::vector<Call> calls;
    for (Form form : {Form::Plain, Form::Angle, Form::Quadrant, Form::Threads})
        for (bool constForm : {true, false})
            for (bool scale : kScales)
                calls.push_back(Call{form, constForm, scale});
    return calls;
}

// The three results of a call into bound images at `offset` of the given
// size, each first set to sentinel `which`; checked against the unbound
// results.
template <typename T>
void expectBoundResults(const Call& call, const kxFrequencyBuffer& spectrum, long w, long h, kxPair<long> offset,
                        int which, const std::string& what)
{
    kxPelBuffer<T> reference;
    kxPelBuffer<double> referenceAngle;
    kxPelBuffer<unsigned char> referenceQuadrant;
    call(spectrum, reference, referenceAngle, referenceQuadrant);
    ASSERT_TRUE(reference.isBound()) << what;

    kxPelBuffer<T> image = sentinelImage<T>(w, h, offset, sentinel<T>(which));
    kxPelBuffer<double> angle = sentinelImage<double>(w, h, offset, sentinel<double>(which));
    kxPelBuffer<unsigned char> quadrant = sentinelImage<unsigned char>(w, h, offset, sentinel<unsigned char>(which));
    const kxPelBuffer<T> imageAlias = image;
    call(spectrum, image, angle, quadrant);

    EXPECT_TRUE(holds(image, reference, sentinel<T>(which))) << what;
    EXPECT_TRUE(image.sharesPixels(imageAlias)) << what;
    EXPECT_EQ(image.width(), w) << what;
    EXPECT_EQ(image.offset(), offset) << what;
    EXPECT_TRUE(image.xformCache() == someTransform()) << what;
    // The other images of the call stay untouched.
    const kxPelBuffer<double> noAngle;
    const kxPelBuffer<unsigned char> noQuadrant;
    EXPECT_TRUE(holds(angle, call.form == Form::Angle ? referenceAngle : noAngle, sentinel<double>(which))) << what;
    EXPECT_TRUE(
        holds(quadrant, call.form == Form::Quadrant ? referenceQuadrant : noQuadrant, sentinel<unsigned char>(which)))
        << what;
}

template <typename T>
void everyFormIntoBoundImages()
{
    // 37 x 70: several row blocks of the conversion, shared by the threads.
    for (auto size : {kxPair<long>(1, 1), kxPair<long>(40, 24), kxPair<long>(37, 70)})
        for (auto stored : {kxPair<long>(0, 0), kxPair<long>(3, -2)}) {
            const long w = size.x(), h = size.y();
            const kxFrequencyBuffer spectrum = spectrumOf(w, h, stored);
            for (const Call& call : everyCall())
                for (int which : kSentinels) {
                    const std::string what = call.name() + ", " + std::to_string(w) + " x " + std::to_string(h) +
                                             " stored at " + std::to_string(stored.x()) + ", " +
                                             std::to_string(stored.y()) + ", sentinel " + std::to_string(which);
                    // The result's own size and place, then others that get the overlap
                    // only.
                    expectBoundResults<T>(call, spectrum, w, h, stored, which, what + ", exact");
                    expectBoundResults<T>(call, spectrum, w, h, shifted(stored, 1, 0), which, what + ", moved");
                    expectBoundResults<T>(call, spectrum, w + 3, h + 2, shifted(stored, -1, -1), which,
                                          what + ", larger");
                    expectBoundResults<T>(call, spectrum, std::max(1L, w - 1), h, stored, which, what + ", narrower");
                }
        }
}

}   // namespace

TEST(InverseIntoCaller, EveryMagnitudeFormGivesTheUnboundPixels)
{
    everyFormIntoBoundImages<unsigned char>();
    everyFormIntoBoundImages<unsigned short>();
    everyFormIntoBoundImages<double>();
}

TEST(InverseIntoCaller, RealAndImaginaryPartsGiveTheUnboundPixels)
{
    const long w = 37, h = 70;
    for (auto stored : {kxPair<long>(0, 0), kxPair<long>(-4, 5)}) {
        const kxFrequencyBuffer spectrum = spectrumOf(w, h, stored);
        for (bool constForm : {true, false}) {
            auto call = [&](kxPelBuffer<double>& re, kxPelBuffer<double>& im) {
                kxFrequencyBuffer copy = spectrum;
                if (constForm)
                    kfInverseFFT(spectrum, re, im);
                else
                    kfInverseFFT(copy, re, im, true);
            };
            kxPelBuffer<double> re0, im0;
            call(re0, im0);
            for (int which : kSentinels) {
                const std::string what = std::string(constForm ? "const" : "in place") + ", sentinel " +
                                         std::to_string(which) + ", stored at " + std::to_string(stored.x());
                for (auto place : {std::make_pair(kxPair<long>(w, h), stored),
                                   std::make_pair(kxPair<long>(w + 1, h), shifted(stored, -1, 0))}) {
                    const double value = sentinel<double>(which);
                    kxPelBuffer<double> re =
                        sentinelImage<double>(place.first.x(), place.first.y(), place.second, value);
                    kxPelBuffer<double> im =
                        sentinelImage<double>(place.first.x(), place.first.y(), place.second, value);
                    call(re, im);
                    EXPECT_TRUE(holds(re, re0, value)) << what;
                    EXPECT_TRUE(holds(im, im0, value)) << what;
                    EXPECT_EQ(re.offset(), place.second) << what;
                    // Both parts take the stored transform, bound or not.
                    EXPECT_TRUE(re.xformCache() == re0.xformCache()) << what;
                    EXPECT_TRUE(im.xformCache() == im0.xformCache()) << what;
                }
            }
        }
    }
}

// Two caller images on the same pixels: what they hold is decided by the
// order of delivery, the second image first and the magnitude last (the
// imaginary part last for the parts).
TEST(InverseIntoCaller, ImagesOnTheSamePixelsKeepTheOrderOfDelivery)
{
    const long w = 40, h = 24;
    const kxFrequencyBuffer spectrum = spectrumOf(w, h, kxPair<long>(0, 0));
    kxPelBuffer<double> magnitude, angle;
    kfInverseFFTAngle<double>(spectrum, magnitude, angle, false);
    kxPelBuffer<double> both = sentinelImage<double>(w, h, kxPair<long>(0, 0), sentinel<double>(0));
    kxPelBuffer<double> alias = both;
    kfInverseFFTAngle<double>(spectrum, both, alias, false);
    EXPECT_TRUE(holds(both, magnitude, sentinel<double>(0)));

    kxPelBuffer<unsigned char> pixels, quadrant;
    kfInverseFFTQuadrant<unsigned char>(spectrum, pixels, quadrant, false);
    kxPelBuffer<unsigned char> one = sentinelImage<unsigned char>(w, h, kxPair<long>(0, 0), 7);
    kfInverseFFTQuadrant<unsigned char>(spectrum, one, one, false);
    EXPECT_TRUE(holds(one, pixels, static_cast<unsigned char>(7)));

    kxPelBuffer<double> re, im;
    kfInverseFFT(spectrum, re, im);
    kxPelBuffer<double> parts = sentinelImage<double>(w, h, kxPair<long>(0, 0), sentinel<double>(0));
    kfInverseFFT(spectrum, parts, parts);
    EXPECT_TRUE(holds(parts, im, sentinel<double>(0)));
}

namespace {

// Stops `call` at its first, second, ... poll until it completes: after each
// stop the bound images hold what they held and the unbound ones stay
// unbound; `complete` checks the call that was not stopped.
void stopAtEveryPollUntilComplete(const std::function<void()>& setUp, const std::function<void()>& call,
                                  const std::function<void(const std::string&)>& untouched,
                                  const std::function<void()>& complete)
{
    for (unsigned long n = 1; n < 10000; ++n) {
        setUp();
        bool stopped = false;
        {
            kxAttention::Probe probe(n);
            try {
                call();
            }
            catch (const kxAttention::Stopped&) {
                stopped = true;
            }
        }
        if (!stopped) {
            EXPECT_GT(n, 1u);   // the call polls at least once
            complete();
            return;
        }
        untouched("stopped at poll " + std::to_string(n));
    }
    ADD_FAILURE() << "the call never completed";
}

template <typename T>
void stoppedCallsLeaveTheCallerAlone()
{
    const long w = 40, h = 80;
    const kxFrequencyBuffer spectrum = spectrumOf(w, h, kxPair<long>(0, 0));
    for (const Call& call : everyCall())
        for (long boundWidth : {w, w + 1, 0L}) {
            // Bound to the result's size, bound one column wider (only the
            // overlap changes), or unbound.
            const bool bound = boundWidth != 0;
            const std::string name = call.name() + ", bound width " + std::to_string(boundWidth);
            kxPelBuffer<T> reference;
            kxPelBuffer<double> referenceAngle;
            kxPelBuffer<unsigned char> referenceQuadrant;
            call(spectrum, reference, referenceAngle, referenceQuadrant);

            kxPelBuffer<T> image;
            kxPelBuffer<double> angle;
            kxPelBuffer<unsigned char> quadrant;
            const T value = sentinel<T>(1);
            const kxPelBuffer<T> empty;
            auto setUp = [&] {
                const kxPair<long> origin(0, 0);
                image = bound ? sentinelImage<T>(boundWidth, h, origin, value) : kxPelBuffer<T>();
                angle = bound ? sentinelImage<double>(boundWidth, h, origin, 0.5) : kxPelBuffer<double>();
                quadrant =
                    bound ? sentinelImage<unsigned char>(boundWidth, h, origin, 9) : kxPelBuffer<unsigned char>();
            };
            auto untouched = [&](const std::string& when) {
                const std::string what = name + ", " + when;
                EXPECT_EQ(image.isBound(), bound) << what;
                EXPECT_EQ(angle.isBound(), bound) << what;
                EXPECT_EQ(quadrant.isBound(), bound) << what;
                if (bound) {
                    EXPECT_TRUE(holds(image, empty, value)) << what;
                    EXPECT_TRUE(holds(angle, kxPelBuffer<double>(), 0.5)) << what;
                    EXPECT_TRUE(holds(quadrant, kxPelBuffer<unsigned char>(), static_cast<unsigned char>(9))) << what;
                    EXPECT_TRUE(image.xformCache() == someTransform()) << what;
                }
            };
            auto complete = [&] {
                if (!bound) {
                    EXPECT_TRUE(sameWindow(image, reference)) << name;
                    return;
                }
                EXPECT_TRUE(holds(image, reference, value)) << name;
                if (call.form == Form::Angle) {
                    EXPECT_TRUE(holds(angle, referenceAngle, 0.5)) << name;
                }
                if (call.form == Form::Quadrant) {
                    EXPECT_TRUE(holds(quadrant, referenceQuadrant, static_cast<unsigned char>(9))) << name;
                }
            };
            stopAtEveryPollUntilComplete(
                setUp, [&] { call(spectrum, image, angle, quadrant); }, untouched, complete);
        }
}

}   // namespace

TEST(InverseIntoCaller, AStoppedCallLeavesABoundImageAsItWasAndAnUnboundOneUnbound)
{
    stoppedCallsLeaveTheCallerAlone<unsigned char>();
    stoppedCallsLeaveTheCallerAlone<unsigned short>();
    stoppedCallsLeaveTheCallerAlone<double>();
}

TEST(InverseIntoCaller, AStoppedCallToRealAndImaginaryPartsLeavesBoundImagesAsTheyWere)
{
    const long w = 40, h = 80;
    const kxFrequencyBuffer spectrum = spectrumOf(w, h, kxPair<long>(0, 0));
    kxPelBuffer<double> re0, im0;
    kfInverseFFT(spectrum, re0, im0);
    for (bool constForm : {true, false}) {
        kxPelBuffer<double> re, im;
        kxFrequencyBuffer copy;
        stopAtEveryPollUntilComplete(
            [&] {
                re = sentinelImage<double>(w, h, kxPair<long>(0, 0), 0.25);
                im = sentinelImage<double>(w, h, kxPair<long>(0, 0), 0.75);
                copy = spectrum;
            },
            [&] { constForm ? kfInverseFFT(spectrum, re, im) : kfInverseFFT(copy, re, im, true); },
            [&](const std::string& when) {
                EXPECT_TRUE(holds(re, kxPelBuffer<double>(), 0.25)) << when;
                EXPECT_TRUE(holds(im, kxPelBuffer<double>(), 0.75)) << when;
            },
            [&] {
                EXPECT_TRUE(holds(re, re0, 0.25));
                EXPECT_TRUE(holds(im, im0, 0.75));
            });
    }
}

// Repeated const inverses to double into one bound image: once the first
// call has taken its working memory, the next ones fault (almost) no new
// pages in. A 2048 x 2048 result image of its own, made per call, would
// fault 8192 pages each time.
TEST(InverseIntoCaller, RepeatedInversesIntoABoundImageFaultNoNewPages)
{
#ifdef KX_UNDER_SANITIZER
    GTEST_SKIP() << "the sanitizers' allocators hold freed memory back";
#else
    const long side = 2048;
    const kxFrequencyBuffer spectrum = spectrumOf(side, side, kxPair<long>(0, 0));
    kxPelBuffer<double> image(side, side);
    kfInverseFFT<double>(spectrum, image, false);
    kfInverseFFT<double>(spectrum, image, false);
    const int calls = 4;
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    for (int i = 0; i < calls; ++i)
        kfInverseFFT<double>(spectrum, image, false);
    getrusage(RUSAGE_SELF, &after);
    const long perCall = (after.ru_minflt - before.ru_minflt) / calls;
    EXPECT_LE(perCall, 64) << "page faults per call";
#endif
}
