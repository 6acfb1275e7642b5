// Find the shift between two images by cross-correlating their spectra.
#include <kx/fft.h>

#include <cstdio>

int main()
{
    const long w = 128, h = 128, dx = 17, dy = -9;
    auto pattern = [](long x, long y) { return static_cast<unsigned char>((x * x + 3 * y * y + x * y) % 256); };
    kxPelBuffer<unsigned char> a(w, h), b(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            a(x, y) = pattern(x, y);
            b(x, y) = pattern((x - dx + w) % w, (y - dy + h) % h);   // a moved by (dx, dy)
        }

    kxFrequencyBuffer fa, fb, cross;
    kfForwardFFT<unsigned char>(a, fa);
    kfForwardFFT<unsigned char>(b, fb);
    kfFrequencyConjugate(fa);
    kfFrequencyMultiply(fb, fa, cross);   // spectrum of the circular cross-correlation

    kxPelBuffer<double> correlation, imaginary;
    kfInverseFFT(cross, correlation, imaginary);
    long bestX = 0, bestY = 0;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            if (correlation(x, y) > correlation(bestX, bestY)) {
                bestX = x;
                bestY = y;
            }
    // Peaks past the middle stand for negative shifts.
    const long foundX = bestX < w / 2 ? bestX : bestX - w;
    const long foundY = bestY < h / 2 ? bestY : bestY - h;
    std::printf("shift found: (%ld, %ld)\n", foundX, foundY);
    return foundX == dx && foundY == dy ? 0 : 1;
}
