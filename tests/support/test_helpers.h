#pragma once
// Shared helpers of the library's tests.
#include <kx/fft.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace kxtest {

// Expects `call` to throw exactly E with `message` (null message: "").
template <typename E>
void expectError(const std::function<void()>& call, const char* message)
{
    try {
        call();
        ADD_FAILURE() << "no exception, expected: " << message;
    } catch (const E& e) {
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

}  // namespace kxtest
