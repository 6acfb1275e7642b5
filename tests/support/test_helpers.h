#pragma once
// Shared helpers of the library's tests.
#include <kx/fft.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <typeinfo>

namespace kxtest {

constexpr double kPi = 3.141592653589793;
// The buffer's Uninitialized message, as the tests expect it.
constexpr const char* kNotInit = "FrequencyBuffer has not been initialized";

// Expects `call` to throw exactly E (not a class derived from it) with
// `message` (null message: "").
template <typename E>
void expectError(const std::function<void()>& call, const char* message)
{
    try {
        call();
        ADD_FAILURE() << "no exception, expected: " << message;
    } catch (const E& e) {
        EXPECT_EQ(typeid(e), typeid(E)) << "thrown: " << typeid(e).name();
        EXPECT_EQ(std::string(e.what()), message);
    } catch (const std::exception& e) {
        ADD_FAILURE() << "other exception: " << e.what();
    }
}

template <typename T>
kxPelBuffer<T> imageFrom(long w, long h, const std::function<T(long, long)>& pixel)
{
    kxPelBuffer<T> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            image(x, y) = pixel(x, y);
    return image;
}

// A buffer whose element (x, y) in storage order is (1 + x, 2 - y), so that
// any element's value before a filter ran is known.
inline kxFrequencyBuffer knownBuffer(long w, long h)
{
    kxFrequencyBuffer b(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            b.put(x, y, kxPair<double>(1.0 + x, 2.0 - y), false);
    return b;
}

// A w x h buffer whose every element is (1, 1): filtering it shows a
// filter's gains.
inline kxFrequencyBuffer onesBuffer(long w, long h)
{
    kxFrequencyBuffer b(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            b.put(x, y, kxPair<double>(1, 1), false);
    return b;
}

}  // namespace kxtest
