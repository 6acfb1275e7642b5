// Test helper for the command-line tests: writes the images they run on and
// measures what the tool wrote.
//
//   make_test_images DIR                      the standard set of test images
//   make_test_images crafted DIR              tiny files announcing huge images
//   make_test_images big OUT W H              a large smooth 8-bit image
//   make_test_images crop IN X Y W H OUT      a part of an image, pixels unchanged
//   make_test_images stripes IN ORIG OUT ANGLE PERIOD AMPLITUDE
//                                             IN's grey range compressed (ORIG),
//                                             and with stripes added (OUT)
//   make_test_images reject ORIG STRIPED FILTERED ANGLE PERIOD EXCLUDE
//                                             stripe energy removed, and RMS of
//                                             FILTERED - ORIG away from the
//                                             stripes' frequency
//   make_test_images nowrap OUT8 OUT16 OFFSET  compares an 8-bit result with the
//                                             16-bit result of the same image
//                                             raised by OFFSET
//   make_test_images edges IMG                means of the border rows and columns
//   make_test_images info IMG                 width height bits min max mean
//   make_test_images pixel IMG X Y            one pixel's value
//   make_test_images tiff DIR                 TIFF files in strips and tiles
//   make_test_images scene OUT W H BITS SEED  a natural-looking scene: a smooth
//                                             random field with edged shapes
//   make_test_images halve IN OUT             2 x 2 blocks averaged (a shift by
//                                             one pixel of IN is half a pixel here)
//   make_test_images vary IN OUT GAIN OFFSET NOISE SEED
//                                             grey levels times GAIN plus OFFSET
//                                             plus uniform noise of +-NOISE
//   make_test_images grating IN OUT ANGLE PERIOD AMPLITUDE
//                                             IN with a square-wave grating added
//   make_test_images colourise IN OUT KIND    a colour image made from a grey
//                                             one: red IN, green IN mirrored
//                                             (KIND plain), the same with an
//                                             alpha ramp (alpha), or green
//                                             0.8 IN + 20 (tint); blue IN
//                                             inverted
//   make_test_images channel IN C OUT         channel C of IN as a grey image
//   make_test_images grey IN OUT              IN read as grey (luminance)
//   make_test_images strip OUT W H            a large 8-bit image with oblique
//                                             stripes, written row by row
//   make_test_images diff A B                 largest difference and the number
//                                             of pixels that differ
#include "image_io.h"

#include <kx/fft.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#ifdef KXIO_TEST_TIFF
#include <tiffio.h>
#endif

using namespace kxio;

namespace {

constexpr double kPi = 3.141592653589793;

template <typename T>
kxPelBuffer<T> textured(long w, long h, double scale, long seed)
{
    kxPelBuffer<T> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            const double v = 100 + 60 * std::cos(0.8 * x) * std::cos(0.5 * y) + ((x * 7 + y * 13 + seed) % 11);
            image(x, y) = static_cast<T>(v * scale);
        }
    return image;
}

double pel(const GreyImage& image, long x, long y)
{
    return image.bits == 8 ? image.pixels8(x, y) : image.pixels16(x, y);
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// ---- PNG chunk CRC, for the crafted header
unsigned long crc(const unsigned char* data, std::size_t n)
{
    unsigned long c = 0xffffffffUL;
    for (std::size_t i = 0; i < n; ++i) {
        c ^= data[i];
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? 0xedb88320UL ^ (c >> 1) : c >> 1;
    }
    return c ^ 0xffffffffUL;
}

void put32(std::vector<unsigned char>& out, unsigned long v)
{
    for (int s = 24; s >= 0; s -= 8)
        out.push_back(static_cast<unsigned char>((v >> s) & 0xff));
}

// A PNG signature, an IHDR announcing 65535 x 65535 grey of `bits` bits, and
// the start of an IDAT chunk: 68 bytes or so.
std::vector<unsigned char> hugePng(int bits)
{
    std::vector<unsigned char> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    std::vector<unsigned char> ihdr = {'I', 'H', 'D', 'R'};
    put32(ihdr, 65535);
    put32(ihdr, 65535);
    ihdr.push_back(static_cast<unsigned char>(bits));
    ihdr.insert(ihdr.end(), {0, 0, 0, 0});
    put32(out, 13);
    out.insert(out.end(), ihdr.begin(), ihdr.end());
    put32(out, crc(ihdr.data(), ihdr.size()));
    std::vector<unsigned char> idat = {'I', 'D', 'A', 'T', 0x78, 0x9c, 0x63, 0x60, 0x00, 0x00, 0x00, 0x02, 0x00, 0x01};
    put32(out, 10);
    out.insert(out.end(), idat.begin(), idat.end());
    put32(out, crc(idat.data(), idat.size()));
    out.resize(std::max<std::size_t>(out.size(), 68), 0);
    return out;
}

// A little-endian TIFF header announcing 65535 x 65535 16-bit grey in one
// strip that is not there.
std::vector<unsigned char> hugeTiff()
{
    std::vector<unsigned char> out = {'I', 'I', 42, 0, 8, 0, 0, 0};
    auto put16le = [&](unsigned v) {
        out.push_back(static_cast<unsigned char>(v & 0xff));
        out.push_back(static_cast<unsigned char>(v >> 8));
    };
    auto put32le = [&](unsigned long v) {
        for (int s = 0; s < 32; s += 8)
            out.push_back(static_cast<unsigned char>((v >> s) & 0xff));
    };
    const unsigned tags[][3] = {{256, 4, 65535}, {257, 4, 65535}, {258, 3, 16},       {259, 3, 1},
                                {262, 3, 1},     {273, 4, 200},   {277, 3, 1},        {278, 4, 65535},
                                {279, 4, 0x7fffffff}};
    put16le(9);
    for (const auto& t : tags) {
        put16le(t[0]);
        put16le(t[1]);
        put32le(1);
        if (t[1] == 3) {
            put16le(t[2]);
            put16le(0);
        } else {
            put32le(t[2]);
        }
    }
    put32le(0);
    return out;
}

int makeStandard(const std::string& dir)
{
    writeImage(dir + "gray8.pgm", makeImage8(textured<unsigned char>(100, 60, 1, 0)));
    writeImage(dir + "second8.pgm", makeImage8(textured<unsigned char>(100, 60, 1, 5)));
    writeImage(dir + "third8.pgm", makeImage8(textured<unsigned char>(64, 64, 1, 9)));
    writeImage(dir + "gray16.pgm", makeImage16(textured<unsigned short>(70, 50, 200, 0)));
    writeImage(dir + "ascii8.pgm", makeImage8(textured<unsigned char>(20, 10, 1, 0)), Format::PgmAscii);
    writeImage(dir + "big.pgm", makeImage8(kxPelBuffer<unsigned char>(2049, 2)));
    writeImage(dir + "small.pgm", makeImage8(textured<unsigned char>(30, 30, 1, 0)));
    if (pngSupported()) {
        writeImage(dir + "gray8.png", makeImage8(textured<unsigned char>(100, 60, 1, 0)));
        writeImage(dir + "gray16.png", makeImage16(textured<unsigned short>(70, 50, 200, 0)));
    }
    // A bright square on a dark ground, 8-bit and (raised by 1000) 16-bit: a
    // band-reject makes it ring above the top and below zero.
    kxPelBuffer<unsigned char> square8(120, 90);
    kxPelBuffer<unsigned short> square16(120, 90);
    for (long y = 0; y < 90; ++y)
        for (long x = 0; x < 120; ++x) {
            const int v = (x >= 30 && x < 90 && y >= 20 && y < 70) ? 250 : 5;
            square8(x, y) = static_cast<unsigned char>(v);
            square16(x, y) = static_cast<unsigned short>(v + 1000);
        }
    writeImage(dir + "square8.pgm", makeImage8(square8));
    writeImage(dir + "square16.pgm", makeImage16(square16));
    // A flat grey image with a faint texture, not a power of two in size.
    kxPelBuffer<unsigned char> flat(100, 60);
    for (long y = 0; y < 60; ++y)
        for (long x = 0; x < 100; ++x)
            flat(x, y) = static_cast<unsigned char>(200 + (x * 3 + y * 5) % 7);
    writeImage(dir + "flat.pgm", makeImage8(flat));
    // A centred gain image for a 128 x 64 spectrum: pass inside a disc.
    kxPelBuffer<unsigned char> gain(128, 64);
    for (long y = 0; y < 64; ++y)
        for (long x = 0; x < 128; ++x) {
            const double u = (x - 64) / 128.0, v = (y - 32) / 64.0;
            gain(x, y) = std::sqrt(u * u + v * v) < 0.1 ? 255 : 0;
        }
    writeImage(dir + "gain128x64.pgm", makeImage8(gain));
    return 0;
}

int makeCrafted(const std::string& dir)
{
    writeBytes(dir + "huge8.png", hugePng(8));
    writeBytes(dir + "huge16.png", hugePng(16));
    const std::string pgm = "P5\n65535 65535\n65535\n";
    writeBytes(dir + "huge.pgm", std::vector<unsigned char>(pgm.begin(), pgm.end()));
    writeBytes(dir + "huge.tif", hugeTiff());
    return 0;
}

int makeBig(const std::string& path, long w, long h)
{
    kxPelBuffer<unsigned char> image(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            image(x, y) = static_cast<unsigned char>(128 + 60 * std::sin(x * 0.05) * std::cos(y * 0.03));
    writeImage(path, makeImage8(image));
    return 0;
}

int crop(const std::string& in, long x, long y, long w, long h, const std::string& out)
{
    Region region;
    region.x = x, region.y = y, region.width = w, region.height = h;
    writeImage(out, readImage(in, region, ReadLimits{kMaxSide, ""}));
    return 0;
}

int stripes(const std::string& in, const std::string& origPath, const std::string& out, double angle, double period,
            double amplitude)
{
    const GreyImage photo = readImage(in, [](const std::string&) {});
    const long w = photo.width(), h = photo.height();
    kxPelBuffer<unsigned char> orig(w, h), striped(w, h);
    const double c = std::cos(angle * kPi / 180), s = std::sin(angle * kPi / 180);
    const double top = photo.bits == 8 ? 255.0 : 65535.0;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            const double base = 20 + 0.85 * 255 * pel(photo, x, y) / top;
            const double stripe = amplitude * std::cos(2 * kPi * (x * c + y * s) / period);
            orig(x, y) = static_cast<unsigned char>(std::lround(base));
            striped(x, y) = static_cast<unsigned char>(std::lround(std::min(255.0, std::max(0.0, base + stripe))));
        }
    writeImage(origPath, makeImage8(orig));
    writeImage(out, makeImage8(striped));
    return 0;
}

// |sum of (a - b) e^(-i 2 pi k.x)| / N at the stripes' frequency k.
double toneAmplitude(const GreyImage& a, const GreyImage& b, double angle, double period)
{
    const double c = std::cos(angle * kPi / 180), s = std::sin(angle * kPi / 180);
    double re = 0, im = 0;
    for (long y = 0; y < a.height(); ++y)
        for (long x = 0; x < a.width(); ++x) {
            const double d = pel(a, x, y) - pel(b, x, y);
            const double phase = 2 * kPi * (x * c + y * s) / period;
            re += d * std::cos(phase);
            im -= d * std::sin(phase);
        }
    return std::sqrt(re * re + im * im) / (a.width() * a.height());
}

int reject(const std::string& origPath, const std::string& stripedPath, const std::string& filteredPath, double angle,
           double period, double exclude)
{
    const GreyImage orig = readImage(origPath), striped = readImage(stripedPath), filtered = readImage(filteredPath);
    const double before = toneAmplitude(striped, orig, angle, period);
    const double after = toneAmplitude(filtered, orig, angle, period);
    const double removed = 1 - (after * after) / (before * before);
    // The difference, without the frequencies within `exclude` cycles per
    // pixel of the stripes' (and their mirror), back in the image domain.
    const long w = orig.width(), h = orig.height();
    kxPelBuffer<double> diff(w, h);
    double plain = 0;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            diff(x, y) = pel(filtered, x, y) - pel(orig, x, y);
            plain += diff(x, y) * diff(x, y);
        }
    kxFrequencyBuffer spectrum;
    kfForwardFFT<double>(diff, spectrum);
    const long pw = spectrum.width(), ph = spectrum.height();
    const double ku = std::cos(angle * kPi / 180) / period, kv = std::sin(angle * kPi / 180) / period;
    for (long y = -ph / 2; y < (ph + 1) / 2; ++y)
        for (long x = -pw / 2; x < (pw + 1) / 2; ++x) {
            const double u = static_cast<double>(x) / pw, v = static_cast<double>(y) / ph;
            if (std::hypot(u - ku, v - kv) < exclude || std::hypot(u + ku, v + kv) < exclude)
                spectrum.put(x, y, kxPair<double>(0, 0), true);
        }
    kxPelBuffer<double> re, im;
    kfInverseFFT(static_cast<const kxFrequencyBuffer&>(spectrum), re, im);
    double away = 0;
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x)
            away += re(x, y) * re(x, y);
    std::printf("removed %.4f rms_away %.4f rms_all %.4f\n", removed, std::sqrt(away / (w * h)),
                std::sqrt(plain / (w * h)));
    return 0;
}

int nowrap(const std::string& path8, const std::string& path16, double offset)
{
    const GreyImage a = readImage(path8), b = readImage(path16);
    long above = 0, below = 0, mismatches = 0;
    for (long y = 0; y < a.height(); ++y)
        for (long x = 0; x < a.width(); ++x) {
            const double v = pel(b, x, y) - offset;
            above += v > 255;
            below += v < 0;
            const double expected = std::min(255.0, std::max(0.0, v));
            mismatches += std::fabs(pel(a, x, y) - expected) > 1;
        }
    std::printf("above %ld below %ld mismatches %ld\n", above, below, mismatches);
    return 0;
}

int edges(const std::string& path)
{
    const GreyImage image = readImage(path);
    const long w = image.width(), h = image.height();
    auto rowMean = [&](long y) {
        double s = 0;
        for (long x = 0; x < w; ++x)
            s += pel(image, x, y);
        return s / w;
    };
    auto columnMean = [&](long x) {
        double s = 0;
        for (long y = 0; y < h; ++y)
            s += pel(image, x, y);
        return s / h;
    };
    double interior = 0;
    for (long y = h / 4; y < 3 * h / 4; ++y)
        for (long x = w / 4; x < 3 * w / 4; ++x)
            interior += pel(image, x, y);
    interior /= (h / 2) * (w / 2);
    std::printf("top %.2f bottom %.2f left %.2f right %.2f interior %.2f\n", rowMean(0), rowMean(h - 1), columnMean(0),
                columnMean(w - 1), interior);
    return 0;
}

int info(const std::string& path)
{
    const GreyImage image = readImage(path, Region{}, ReadLimits{kMaxSide, ""});
    double lo = 1e9, hi = -1e9, sum = 0;
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.width(); ++x) {
            lo = std::min(lo, pel(image, x, y));
            hi = std::max(hi, pel(image, x, y));
            sum += pel(image, x, y);
        }
    std::printf("%ld %ld %d %g %g %.3f\n", image.width(), image.height(), image.bits, lo, hi,
                sum / (image.width() * image.height()));
    return 0;
}

int pixel(const std::string& path, long x, long y)
{
    const GreyImage image = readImage(path);
    std::printf("%g\n", pel(image, x, y));
    return 0;
}

// A deterministic pseudo-random number in [0, 1).
double hashed(unsigned long a, unsigned long b, unsigned long seed)
{
    unsigned long h = (a * 73856093UL) ^ (b * 19349663UL) ^ (seed * 83492791UL);
    h ^= h >> 13;
    h *= 0x5bd1e995UL;
    h ^= h >> 15;
    return static_cast<double>(h & 0xffffffUL) / 16777216.0;
}

// Random values on a grid of `cell` pixels, interpolated smoothly.
double smoothNoise(double x, double y, double cell, unsigned long seed)
{
    const double gx = x / cell, gy = y / cell;
    const long ix = static_cast<long>(std::floor(gx)), iy = static_cast<long>(std::floor(gy));
    const double fx = gx - ix, fy = gy - iy;
    const double sx = fx * fx * (3 - 2 * fx), sy = fy * fy * (3 - 2 * fy);
    auto at = [&](long i, long j) {
        return hashed(static_cast<unsigned long>(i + 100000), static_cast<unsigned long>(j + 100000), seed);
    };
    const double top = at(ix, iy) + (at(ix + 1, iy) - at(ix, iy)) * sx;
    const double bottom = at(ix, iy + 1) + (at(ix + 1, iy + 1) - at(ix, iy + 1)) * sx;
    return top + (bottom - top) * sy;
}

int scene(const std::string& path, long w, long h, int bits, unsigned long seed)
{
    kxPelBuffer<double> v(w, h);
    for (long y = 0; y < h; ++y)
        for (long x = 0; x < w; ++x) {
            double s = 0.5 * smoothNoise(x, y, 40, seed) + 0.3 * smoothNoise(x, y, 13, seed + 1) +
                       0.2 * smoothNoise(x, y, 4, seed + 2);
            // Edged shapes: rectangles and discs, brighter or darker.
            for (unsigned long k = 0; k < 12; ++k) {
                const double cx = hashed(k, 1, seed) * w, cy = hashed(k, 2, seed) * h;
                const double r = 6 + hashed(k, 3, seed) * 0.12 * std::min(w, h);
                const double step = hashed(k, 4, seed) < 0.5 ? -0.25 : 0.25;
                const bool inside = k % 2 ? std::hypot(x - cx, y - cy) < r
                                          : std::fabs(x - cx) < r && std::fabs(y - cy) < 0.6 * r;
                if (inside)
                    s += step;
            }
            v(x, y) = std::min(1.0, std::max(0.0, 0.15 + 0.7 * s));
        }
    const int depth = bits == 16 ? 16 : 8;
    const double top = depth == 8 ? 255.0 : 65535.0;
    writeImage(path, roundedImage(depth, w, h, [&](long x, long y) { return v(x, y) * top; }));
    return 0;
}

int halve(const std::string& in, const std::string& out)
{
    const GreyImage image = readImage(in);
    writeImage(out, roundedImage(image.bits, image.width() / 2, image.height() / 2, [&](long x, long y) {
                   return (pel(image, 2 * x, 2 * y) + pel(image, 2 * x + 1, 2 * y) + pel(image, 2 * x, 2 * y + 1) +
                           pel(image, 2 * x + 1, 2 * y + 1)) / 4;
               }));
    return 0;
}

int vary(const std::string& in, const std::string& out, double gain, double offset, double noise, unsigned long seed)
{
    const GreyImage image = readImage(in);
    writeImage(out, roundedImage(image.bits, image.width(), image.height(), [&](long x, long y) {
                   const double u = hashed(static_cast<unsigned long>(x), static_cast<unsigned long>(y), seed);
                   const double n = noise * (2 * u - 1);
                   return pel(image, x, y) * gain + offset + n;
               }));
    return 0;
}

int grating(const std::string& in, const std::string& out, double angle, double period, double amplitude)
{
    const GreyImage image = readImage(in);
    const double c = std::cos(angle * kPi / 180), s = std::sin(angle * kPi / 180);
    writeImage(out, roundedImage(image.bits, image.width(), image.height(), [&](long x, long y) {
                   const double wave = std::cos(2 * kPi * (x * c + y * s) / period);
                   return pel(image, x, y) + (wave >= 0 ? amplitude : -amplitude);
               }));
    return 0;
}

#ifdef KXIO_TEST_TIFF
// Writes `image` as TIFF: tiled when tile > 0, and with `samples` samples per
// pixel (3: RGB with every sample equal to the grey value).
bool writeTiff(const std::string& path, const GreyImage& image, uint32_t tile, int samples)
{
    TIFF* t = TIFFOpen(path.c_str(), "w");
    if (!t)
        return false;
    const long w = image.width(), h = image.height();
    const int bytes = image.bits / 8;
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(w));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(h));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<uint16_t>(image.bits));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, static_cast<uint16_t>(samples));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, static_cast<uint16_t>(samples == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK));
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, static_cast<uint16_t>(PLANARCONFIG_CONTIG));
    TIFFSetField(t, TIFFTAG_COMPRESSION, static_cast<uint16_t>(COMPRESSION_LZW));
    auto sample = [&](long x, long y, std::vector<unsigned char>& out, std::size_t at) {
        const unsigned v = static_cast<unsigned>(pel(image, x, y));
        for (int s = 0; s < samples; ++s) {
            if (bytes == 1) {
                out[at + s] = static_cast<unsigned char>(v);
            } else {
                const unsigned short v16 = static_cast<unsigned short>(v);
                std::memcpy(&out[at + 2 * s], &v16, 2);
            }
        }
    };
    bool ok = true;
    if (tile > 0) {
        TIFFSetField(t, TIFFTAG_TILEWIDTH, tile);
        TIFFSetField(t, TIFFTAG_TILELENGTH, tile);
        std::vector<unsigned char> buffer(static_cast<std::size_t>(tile) * tile * samples * bytes);
        for (long ty = 0; ty < h; ty += tile)
            for (long tx = 0; tx < w; tx += tile) {
                std::fill(buffer.begin(), buffer.end(), 0);
                for (long y = 0; y < static_cast<long>(tile) && ty + y < h; ++y)
                    for (long x = 0; x < static_cast<long>(tile) && tx + x < w; ++x)
                        sample(tx + x, ty + y, buffer, (static_cast<std::size_t>(y) * tile + x) * samples * bytes);
                ok = ok && TIFFWriteTile(t, buffer.data(), static_cast<uint32_t>(tx), static_cast<uint32_t>(ty), 0, 0) >= 0;
            }
    } else {
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(7));
        std::vector<unsigned char> row(static_cast<std::size_t>(w) * samples * bytes);
        for (long y = 0; y < h; ++y) {
            for (long x = 0; x < w; ++x)
                sample(x, y, row, static_cast<std::size_t>(x) * samples * bytes);
            ok = ok && TIFFWriteScanline(t, row.data(), static_cast<uint32_t>(y), 0) >= 0;
        }
    }
    TIFFClose(t);
    return ok;
}

int makeTiffs(const std::string& dir)
{
    const GreyImage g8 = makeImage8(textured<unsigned char>(100, 60, 1, 0));
    const GreyImage g16 = makeImage16(textured<unsigned short>(70, 50, 200, 0));
    bool ok = writeTiff(dir + "strips8.tif", g8, 0, 1) && writeTiff(dir + "strips16.tif", g16, 0, 1) &&
              writeTiff(dir + "tiles8.tif", g8, 32, 1) && writeTiff(dir + "tiles16.tif", g16, 16, 1) &&
              writeTiff(dir + "rgb8.tif", g8, 0, 3);
    // The same pixels as PGM, to compare with.
    writeImage(dir + "ref8.pgm", g8);
    writeImage(dir + "ref16.pgm", g16);
    return ok ? 0 : 1;
}
#else
int makeTiffs(const std::string&) { return 3; }
#endif

}  // namespace

namespace {

int colourise(const std::string& in, const std::string& out, const std::string& kind)
{
    const bool alpha = kind == "alpha", tint = kind == "tint";
    const GreyImage grey = readImage(in, Region{}, ReadLimits{kMaxSide, ""}, [](const std::string&) {});
    const long w = grey.width(), h = grey.height();
    const double top = grey.bits == 8 ? 255 : 65535;
    Image image;
    image.planes.push_back(grey);
    image.planes.push_back(roundedImage(grey.bits, w, h, [&](long x, long y) {
        return tint ? 0.8 * pel(grey, x, y) + 20 : pel(grey, w - 1 - x, y);
    }));
    image.planes.push_back(roundedImage(grey.bits, w, h, [&](long x, long y) { return top - pel(grey, x, y); }));
    if (alpha)
        image.planes.push_back(roundedImage(grey.bits, w, h, [&](long x, long) { return top * x / (w - 1); }));
    writeImage(out, image, formatFor(out));
    return 0;
}

int channel(const std::string& in, int c, const std::string& out)
{
    const Image image = readChannels(in, Region{}, ReadLimits{kMaxSide, ""});
    if (c < 0 || c >= image.channels())
        throw ImageError(in + ": has no channel " + std::to_string(c));
    writeImage(out, image.planes[static_cast<std::size_t>(c)]);
    return 0;
}

int strip(const std::string& out, long w, long h)
{
    // Separable tables: the stripes' cosine as cos(a + b) = cos a cos b - sin a sin b.
    const double kx = 2 * kPi * std::cos(kPi / 6) / 9, ky = 2 * kPi * std::sin(kPi / 6) / 9;
    std::vector<double> sx(static_cast<std::size_t>(w)), cx(sx.size()), scene(sx.size());
    for (long x = 0; x < w; ++x) {
        cx[static_cast<std::size_t>(x)] = std::cos(kx * x);
        sx[static_cast<std::size_t>(x)] = std::sin(kx * x);
        scene[static_cast<std::size_t>(x)] = 50 * std::sin(x * 0.013);
    }
    ImageWriter writer(out, formatFor(out), ImageInfo{w, h, 8, formatFor(out), 1});
    std::vector<unsigned char> row(static_cast<std::size_t>(w));
    for (long y = 0; y < h; ++y) {
        const double cy = std::cos(ky * y), sy = std::sin(ky * y), vary = std::cos(y * 0.007);
        for (long x = 0; x < w; ++x) {
            const std::size_t i = static_cast<std::size_t>(x);
            const unsigned long hash =
                (static_cast<unsigned long>(x) * 73856093UL) ^ (static_cast<unsigned long>(y) * 19349663UL);
            const double noise = static_cast<double>((hash >> 7) % 9);   // no period of its own
            const double v = 110 + scene[i] * vary + noise + 15 * (cx[i] * cy - sx[i] * sy);
            row[i] = static_cast<unsigned char>(std::lround(v));
        }
        writer.row(row.data());
    }
    writer.commit();
    return 0;
}

int diff(const std::string& a, const std::string& b)
{
    ReadLimits limits{kMaxSide, ""};
    const GreyImage x = readImage(a, Region{}, limits), y = readImage(b, Region{}, limits);
    if (x.width() != y.width() || x.height() != y.height())
        throw ImageError("the images differ in size");
    double largest = 0;
    long count = 0;
    for (long j = 0; j < x.height(); ++j)
        for (long i = 0; i < x.width(); ++i) {
            const double d = std::fabs(pel(x, i, j) - pel(y, i, j));
            largest = std::max(largest, d);
            count += d > 0;
        }
    std::cout << "largest " << largest << " differing " << count << "\n";
    return 0;
}

int grey(const std::string& in, const std::string& out)
{
    writeImage(out, readImage(in, Region{}, ReadLimits{kMaxSide, ""}, [](const std::string&) {}));
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> a(argv + 1, argv + argc);
    try {
        if (a.size() == 1)
            return makeStandard(a[0] + "/");
        if (a.size() == 2 && a[0] == "crafted")
            return makeCrafted(a[1] + "/");
        if (a.size() == 2 && a[0] == "tiff")
            return makeTiffs(a[1] + "/");
        if (a.size() == 4 && a[0] == "big")
            return makeBig(a[1], std::atol(a[2].c_str()), std::atol(a[3].c_str()));
        if (a.size() == 7 && a[0] == "crop")
            return crop(a[1], std::atol(a[2].c_str()), std::atol(a[3].c_str()), std::atol(a[4].c_str()),
                        std::atol(a[5].c_str()), a[6]);
        if (a.size() == 7 && a[0] == "stripes")
            return stripes(a[1], a[2], a[3], std::atof(a[4].c_str()), std::atof(a[5].c_str()), std::atof(a[6].c_str()));
        if (a.size() == 7 && a[0] == "reject")
            return reject(a[1], a[2], a[3], std::atof(a[4].c_str()), std::atof(a[5].c_str()), std::atof(a[6].c_str()));
        if (a.size() == 4 && a[0] == "nowrap")
            return nowrap(a[1], a[2], std::atof(a[3].c_str()));
        if (a.size() == 2 && a[0] == "edges")
            return edges(a[1]);
        if (a.size() == 4 && a[0] == "pixel")
            return pixel(a[1], std::atol(a[2].c_str()), std::atol(a[3].c_str()));
        if (a.size() == 2 && a[0] == "info")
            return info(a[1]);
        if (a.size() == 6 && a[0] == "scene")
            return scene(a[1], std::atol(a[2].c_str()), std::atol(a[3].c_str()), std::atoi(a[4].c_str()),
                         std::strtoul(a[5].c_str(), nullptr, 10));
        if (a.size() == 3 && a[0] == "halve")
            return halve(a[1], a[2]);
        if (a.size() == 7 && a[0] == "vary")
            return vary(a[1], a[2], std::atof(a[3].c_str()), std::atof(a[4].c_str()), std::atof(a[5].c_str()),
                        std::strtoul(a[6].c_str(), nullptr, 10));
        if (a.size() == 4 && a[0] == "colourise")
            return colourise(a[1], a[2], a[3]);
        if (a.size() == 4 && a[0] == "channel")
            return channel(a[1], std::atoi(a[2].c_str()), a[3]);
        if (a.size() == 4 && a[0] == "strip")
            return strip(a[1], std::atol(a[2].c_str()), std::atol(a[3].c_str()));
        if (a.size() == 3 && a[0] == "diff")
            return diff(a[1], a[2]);
        if (a.size() == 3 && a[0] == "grey")
            return grey(a[1], a[2]);
        if (a.size() == 6 && a[0] == "grating")
            return grating(a[1], a[2], std::atof(a[3].c_str()), std::atof(a[4].c_str()), std::atof(a[5].c_str()));
    } catch (const std::exception& e) {
        std::cerr << "make_test_images: " << e.what() << "\n";
        return 1;
    }
    std::cerr << "usage: see the comment at the top of make_test_images.cpp\n";
    return 2;
}
