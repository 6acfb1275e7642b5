// A transform stopped at any of its polls: every frequency buffer the call
// writes is left not initialized, a destination image it would have bound
// stays unbound, a bound one keeps its binding, size and transform, and the
// sources do not change.
#include "fft/buffer_access.h"
#include "test_helpers.h"

#include <kx/core/attention.h>
#include <kx/fft.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

using Access = kx_FrequencyBufferAccess;
using Defs = kxFrequencyDefs;
using kxtest::expectError;
using kxtest::imageFrom;

namespace {

using kxtest::kNotInit;

template <typename T>
kxPelBuffer<T> testImage(long w, long h, int seed)
{
    return imageFrom<T>(w, h, [=](long x, long y) { return static_cast<T>((x * 37 + y * 91 + seed * 13) % 200); });
}

void expectNotInitialized(const kxFrequencyBuffer& b, const std::string& what)
{
    SCOPED_TRACE(what);
    expectError<Defs::Uninitialized>([&] { b.width(); }, kNotInit);
    expectError<Defs::Uninitialized>([&] { b.getReal(0, 0, false); }, kNotInit);
}

// Everything observable of a buffer, for "unchanged" checks.
struct BufferState {
    std::vector<float> store;
    bool computed;
    long masked, miny, maxy;
    explicit BufferState(const kxFrequencyBuffer& b)
        : store(Access::data(b), Access::data(b) + 2 * Access::paddedWidth(b) * Access::paddedHeight(b)),
          computed(Access::inverseComputed(b)), masked(Access::masked(b)), miny(Access::maskedMiny(b)),
          maxy(Access::maskedMaxy(b))
    {
    }
    bool operator==(const BufferState& o) const
    {
        return store.size() == o.store.size() &&
               std::memcmp(store.data(), o.store.data(), store.size() * sizeof(float)) == 0 &&
               computed == o.computed && masked == o.masked && miny == o.miny && maxy == o.maxy;
    }
};

template <typename T>
bool samePixels(const kxPelBuffer_const<T>& a, const kxPelBuffer_const<T>& b)
{
    if (a.width() != b.width() || a.height() != b.height())
        return false;
    for (long y = 0; y < a.height(); ++y)
        for (long x = 0; x < a.width(); ++x)
            if (a(x, y) != b(x, y))
                return false;
    return true;
}

// A bound image and what must stay of it.
template <typename T>
struct BoundImage {
    kxPelBuffer<T> image;
    kxPelBuffer<T> alias;   // shares the pixels: the binding must stay
    kx2XformCache transform;
    BoundImage(long w, long h) : image(w, h), alias(image)
    {
        image.xformCache().xform(kx2XformLinear(kxXform<2>(kxMatrix<2>(kxRadian(0), kxRadian(0), 2.0, 3.0),
                                                           kxVector<2>(1, 1))));
        transform = image.xformCache();
    }
    void expectKept(long w, long h, const std::string& what) const
    {
        SCOPED_TRACE(what);
        EXPECT_TRUE(image.isBound());
        EXPECT_TRUE(image.sharesPixels(alias));
        EXPECT_EQ(image.width(), w);
        EXPECT_EQ(image.height(), h);
        EXPECT_TRUE(image.xformCache() == transform);
    }
};

// Runs `call` once to count its polls, then stops it at each poll in turn,
// with `check` run after each stop. `setUp` makes the call's fresh state.
void stopAtEveryPoll(const std::function<void()>& setUp, const std::function<void()>& call,
                     const std::function<void(const std::string&)>& check)
{
    unsigned long polls = 0;
    setUp();
    {
        kxAttention::Probe probe;
        call();
        polls = probe.count();
    }
    ASSERT_GT(polls, 0u);
    for (unsigned long n = 1; n <= polls; ++n) {
        setUp();
        {
            kxAttention::Probe probe(n);
            EXPECT_THROW(call(), kxAttention::Stopped) << "poll " << n;
        }
        check("stopped at poll " + std::to_string(n) + " of " + std::to_string(polls));
    }
}

kxFrequencyBuffer spectrumOf(long w, long h, int seed)
{
    kxFrequencyBuffer b;
    kfForwardFFT<unsigned char>(testImage<unsigned char>(w, h, seed), b);
    return b;
}

}  // namespace

template <typename T>
void forwardCancellation()
{
    for (auto size : {std::pair<long, long>{40, 24}, {64, 1}, {3, 70}}) {
        const long w = size.first, h = size.second;
        const kxPelBuffer<T> image = testImage<T>(w, h, 1), imag = testImage<T>(w, h, 2);
        const kxPelBuffer<T> imageCopy = testImage<T>(w, h, 1), imagCopy = testImage<T>(w, h, 2);
        kxFrequencyBuffer result;
        for (bool reused : {false, true}) {
            auto setUp = [&] { result = reused ? spectrumOf(w, h, 5) : kxFrequencyBuffer(); };
            auto check = [&](const std::string& what) {
                expectNotInitialized(result, what);
                EXPECT_TRUE(samePixels<T>(image, imageCopy)) << what;
                EXPECT_TRUE(samePixels<T>(imag, imagCopy)) << what;
            };
            stopAtEveryPoll(setUp, [&] { kfForwardFFT<T>(image, result); }, check);
            stopAtEveryPoll(setUp, [&] { kfForwardFFT<T>(image, imag, result); }, check);
        }
    }
}

TEST(TransformCancellation, ForwardFromImagesLeavesTheResultNotInitialized)
{
    forwardCancellation<unsigned char>();
    forwardCancellation<unsigned short>();
    forwardCancellation<double>();
}

TEST(TransformCancellation, ForwardFromABufferLeavesTheResultNotInitializedAndTheSourceAsItWas)
{
    const kxFrequencyBuffer source = spectrumOf(40, 24, 3);
    const BufferState before(source);
    kxFrequencyBuffer result;
    stopAtEveryPoll([&] { result = spectrumOf(40, 24, 4); }, [&] { kfForwardFFT(source, result); },
                    [&](const std::string& what) {
                        expectNotInitialized(result, what);
                        EXPECT_TRUE(BufferState(source) == before) << what;
                    });
}

namespace {

// One inverse entry point with a T image (and a second image for the angle
// and quadrant forms), in its const or in-place form.
enum class Form { Plain, Angle, Quadrant };

template <typename T>
void runInverse(kxFrequencyBuffer& buffer, bool constForm, Form form, kxPelBuffer<T>& image,
                kxPelBuffer<double>& angle, kxPelBuffer<unsigned char>& quadrant)
{
    const kxFrequencyBuffer& frozen = buffer;
    switch (form) {
    case Form::Plain:
        constForm ? kfInverseFFT<T>(frozen, image, false) : kfInverseFFT<T>(buffer, image, false, true);
        break;
    case Form::Angle:
        constForm ? kfInverseFFTAngle<T>(frozen, image, angle, false)
                  : kfInverseFFTAngle<T>(buffer, image, angle, false, true);
        break;
    case Form::Quadrant:
        constForm ? kfInverseFFTQuadrant<T>(frozen, image, quadrant, false)
                  : kfInverseFFTQuadrant<T>(buffer, image, quadrant, false, true);
        break;
    }
}

}  // namespace

template <typename T>
void inverseCancellation()
{
    const long w = 40, h = 24;
    kxFrequencyBuffer buffer;
    for (Form form : {Form::Plain, Form::Angle, Form::Quadrant})
        for (bool constForm : {true, false})
            for (bool bound : {false, true}) {
                const std::string name = std::string(constForm ? "const" : "in place") +
                                         (bound ? ", bound" : ", unbound") + " form " +
                                         std::to_string(static_cast<int>(form));
                std::unique_ptr<BoundImage<T>> image;
                std::unique_ptr<BoundImage<double>> angle;
                std::unique_ptr<BoundImage<unsigned char>> quadrant;
                kxPelBuffer<T> unboundImage;
                kxPelBuffer<double> unboundAngle;
                kxPelBuffer<unsigned char> unboundQuadrant;
                std::unique_ptr<BufferState> before;
                auto setUp = [&] {
                    buffer = spectrumOf(w, h, 7);
                    before = std::make_unique<BufferState>(buffer);
                    image = std::make_unique<BoundImage<T>>(w, h);
                    angle = std::make_unique<BoundImage<double>>(w, h);
                    quadrant = std::make_unique<BoundImage<unsigned char>>(w, h);
                    unboundImage = kxPelBuffer<T>();
                    unboundAngle = kxPelBuffer<double>();
                    unboundQuadrant = kxPelBuffer<unsigned char>();
                };
                auto call = [&] {
                    if (bound)
                        runInverse<T>(buffer, constForm, form, image->image, angle->image, quadrant->image);
                    else
                        runInverse<T>(buffer, constForm, form, unboundImage, unboundAngle, unboundQuadrant);
                };
                auto check = [&](const std::string& when) {
                    const std::string what = name + ", " + when;
                    if (constForm)
                        EXPECT_TRUE(BufferState(buffer) == *before) << what;
                    else
                        expectNotInitialized(buffer, what);
                    if (bound) {
                        image->expectKept(w, h, what);
                        angle->expectKept(w, h, what);
                        quadrant->expectKept(w, h, what);
                    } else {
                        EXPECT_FALSE(unboundImage.isBound()) << what;
                        EXPECT_FALSE(unboundAngle.isBound()) << what;
                        EXPECT_FALSE(unboundQuadrant.isBound()) << what;
                    }
                };
                stopAtEveryPoll(setUp, call, check);
            }
}

TEST(TransformCancellation, InverseToImagesFollowsTheRule)
{
    inverseCancellation<unsigned char>();
    inverseCancellation<unsigned short>();
    inverseCancellation<double>();
}

TEST(TransformCancellation, InverseToRealAndImaginaryPartsFollowsTheRule)
{
    const long w = 40, h = 24;
    kxFrequencyBuffer buffer;
    for (bool constForm : {true, false})
        for (bool bound : {false, true}) {
            std::unique_ptr<BoundImage<double>> re, im;
            kxPelBuffer<double> unboundRe, unboundIm;
            std::unique_ptr<BufferState> before;
            stopAtEveryPoll(
                [&] {
                    buffer = spectrumOf(w, h, 8);
                    before = std::make_unique<BufferState>(buffer);
                    re = std::make_unique<BoundImage<double>>(w, h);
                    im = std::make_unique<BoundImage<double>>(w, h);
                    unboundRe = kxPelBuffer<double>();
                    unboundIm = kxPelBuffer<double>();
                },
                [&] {
                    kxPelBuffer<double>& a = bound ? re->image : unboundRe;
                    kxPelBuffer<double>& b = bound ? im->image : unboundIm;
                    if (constForm)
                        kfInverseFFT(static_cast<const kxFrequencyBuffer&>(buffer), a, b);
                    else
                        kfInverseFFT(buffer, a, b, true);
                },
                [&](const std::string& when) {
                    const std::string what = std::string(constForm ? "const" : "in place") + ", " + when;
                    if (constForm)
                        EXPECT_TRUE(BufferState(buffer) == *before) << what;
                    else
                        expectNotInitialized(buffer, what);
                    if (bound) {
                        re->expectKept(w, h, what);
                        im->expectKept(w, h, what);
                    } else {
                        EXPECT_FALSE(unboundRe.isBound()) << what;
                        EXPECT_FALSE(unboundIm.isBound()) << what;
                    }
                });
        }
}

TEST(TransformCancellation, InverseBufferToBufferFollowsTheRule)
{
    kxFrequencyBuffer src, dst;
    std::unique_ptr<BufferState> before;
    for (int form = 0; form < 3; ++form)
        for (bool freshDestination : {true, false})
            stopAtEveryPoll(
                [&] {
                    src = spectrumOf(40, 24, 9);
                    before = std::make_unique<BufferState>(src);
                    dst = freshDestination ? kxFrequencyBuffer() : spectrumOf(40, 24, 10);
                },
                [&] {
                    if (form == 0)
                        kfInverseFFT(static_cast<const kxFrequencyBuffer&>(src), dst);
                    else
                        kfInverseFFT(src, dst, form == 2);
                },
                [&](const std::string& when) {
                    const std::string what = "form " + std::to_string(form) + ", " + when;
                    expectNotInitialized(dst, what);
                    if (form == 2)
                        expectNotInitialized(src, what);
                    else
                        EXPECT_TRUE(BufferState(src) == *before) << what;
                });
}

// The same calls, not stopped, complete and leave readable results: the
// checks above are not met by calls that never write anything.
TEST(TransformCancellation, CallsThatAreNotStoppedComplete)
{
    kxFrequencyBuffer spectrum = spectrumOf(40, 24, 11);
    EXPECT_EQ(spectrum.width(), 64);
    kxPelBuffer<unsigned char> image;
    kfInverseFFT<unsigned char>(static_cast<const kxFrequencyBuffer&>(spectrum), image, false);
    EXPECT_TRUE(image.isBound());
    kxFrequencyBuffer dst;
    kfInverseFFT(spectrum, dst, true);
    EXPECT_EQ(dst.width(), 64);
    EXPECT_TRUE(Access::inverseComputed(spectrum));
}
