#pragma once
// The golden cases: a fixed image through forward -> each filter kind ->
// inverse to 8-bit, 16-bit and double images, and the archive bytes of one
// object of every persistent class. Each case is a name and the bytes the
// library produces for it; the files in this folder hold the bytes of the
// release that made them (see make_goldens.cpp), and test_golden.cpp
// compares the two.
#include <kx/freqfilt.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kxgolden {

using Bytes = std::vector<unsigned char>;

struct Case {
    std::string name;      // also the file name, with ".bin"
    std::size_t itemSize;  // bytes per element, for reporting a difference
    std::function<Bytes()> make;
};

// 100 x 60 grey levels with stripes, a ramp and a deterministic speckle:
// not a power of two, so the padding is exercised too.
inline kxPelBuffer<unsigned char> goldenImage()
{
    kxPelBuffer<unsigned char> image(100, 60);
    std::uint32_t state = 2463534242u;
    for (long y = 0; y < 60; ++y)
        for (long x = 0; x < 100; ++x) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            const long stripes = ((x + 2 * y) / 3) % 2 == 0 ? 60 : 0;
            image(x, y) = static_cast<unsigned char>(40 + stripes + x + (state & 31));
        }
    return image;
}

template <typename T>
Bytes pixelBytes(const kxPelBuffer<T>& image)
{
    Bytes bytes;
    for (long y = 0; y < image.height(); ++y)
        for (long x = 0; x < image.width(); ++x) {
            const T value = image(x, y);
            unsigned char raw[sizeof(T)];
            std::memcpy(raw, &value, sizeof(T));
            bytes.insert(bytes.end(), raw, raw + sizeof(T));
        }
    return bytes;
}

// One filter of each kind for the 128 x 64 padded grid of goldenImage().
inline std::vector<std::pair<std::string, std::shared_ptr<kxFrequencyFilter>>> goldenFilters()
{
    kxFrequencyBuffer transfer(128, 64);
    for (long y = 0; y < 64; ++y)
        for (long x = 0; x < 128; ++x)
            transfer.put(x, y, kxPair<double>(1.0 / (1.0 + 0.01 * static_cast<double>(x * x + y * y)), 0.0), false);
    return {
        {"gabor", std::make_shared<kxFrequencyFilterGabor>(kxPair<double>(0.03, 0.05), kxPair<double>(0.01, 0.0),
                                                           kxRadian(0.7), 0.2, kxPair<long>(128, 64), 2)},
        {"gabor-reject", std::make_shared<kxFrequencyFilterGaborReject>(kxPair<double>(0.02, 0.04),
                                                                        kxPair<double>(0.0, 0.01), kxRadian(-0.4),
                                                                        0.17, kxPair<long>(128, 64), 1)},
        {"band-pass", std::make_shared<kxFrequencyFilterBandPass>(0.02, 0.01, 0.15, kxPair<long>(128, 64), 1)},
        {"band-reject", std::make_shared<kxFrequencyFilterBandReject>(0.015, 0.005, 0.33, kxPair<long>(128, 64), 3)},
        {"image-filter", std::make_shared<kxFrequencyFilterImage>(transfer)},
    };
}

inline Bytes storedObject(const kxPersistent& object)
{
    kxMemoryArchive out;
    out.storeObject(&object);
    return out.bytes();
}

inline std::vector<Case> goldenCases()
{
    std::vector<Case> cases;
    for (const auto& named : goldenFilters()) {
        const std::shared_ptr<kxFrequencyFilter> filter = named.second;
        auto filtered = [filter] {
            kxFrequencyBuffer spectrum;
            kfForwardFFT<unsigned char>(goldenImage(), spectrum);
            filter->apply(spectrum);
            return spectrum;
        };
        cases.push_back({"pipeline-" + named.first + "-u8", 1, [filtered] {
                             kxPelBuffer<unsigned char> out;
                             const kxFrequencyBuffer spectrum = filtered();
                             kfInverseFFT<unsigned char>(spectrum, out, false);
                             return pixelBytes(out);
                         }});
        cases.push_back({"pipeline-" + named.first + "-u16", 2, [filtered] {
                             kxPelBuffer<unsigned short> out;
                             kxFrequencyBuffer spectrum = filtered();
                             kfInverseFFT<unsigned short>(spectrum, out, true, true);
                             return pixelBytes(out);
                         }});
        cases.push_back({"pipeline-" + named.first + "-double", 8, [filtered] {
                             kxPelBuffer<double> out;
                             const kxFrequencyBuffer spectrum = filtered();
                             kfInverseFFT<double>(spectrum, out, false);
                             return pixelBytes(out);
                         }});
        cases.push_back({"archive-" + named.first, 1, [filter] { return storedObject(*filter); }});
    }
    cases.push_back({"archive-buffer", 1, [] {
                         kxFrequencyBuffer spectrum;
                         kfForwardFFT<unsigned char>(goldenImage(), spectrum);
                         goldenFilters()[0].second->apply(spectrum);
                         kxMemoryArchive out;
                         out || spectrum;
                         return out.bytes();
                     }});
    cases.push_back({"archive-errors", 1, [] {
                         kxMemoryArchive out;
                         const kxFrequencyDefs::InvalidArgument a("Frequency must be between 0.0 and 0.5.");
                         const kxFrequencyDefs::Uninitialized b("FrequencyBuffer has not been initialized");
                         const kxFrequencyDefs::InvalidSize c("Size must be a power of 2.");
                         const kxFrequencyDefs::UnboundWindow d;
                         const kxFrequencyDefs::InvalidBuffer e("Cannot access frequency data once inverse has been computed.");
                         const kxFrequencyDefs::BadCoord f("Coordinates are out of bounds");
                         for (const kxPersistent* error : std::initializer_list<const kxPersistent*>{&a, &b, &c, &d, &e, &f})
                             out.storeObject(error);
                         return out.bytes();
                     }});
    return cases;
}

}  // namespace kxgolden
