// Fuzz target: a frequency buffer loaded from untrusted bytes, then used the
// way a caller would use it: element reads, component images, arithmetic, the
// inverse transform (const and in place) and storing it again, which must
// reproduce a loadable stream.
#include <kx/fft.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    kxFrequencyBuffer buffer;
    try {
        kxMemoryArchive in(data, size);
        in || buffer;
    } catch (const kxArchive::Error&) {
        return 0;
    }

    // Everything below either works or throws one of the library's errors.
    try {
        const long w = buffer.width(), h = buffer.height();
        buffer.get(0, 0, false);
        buffer.get(-(w / 2), (h + 1) / 2 - 1, true);
        if (w * h <= 65536) {
            buffer.getMagnitudeImage(true);
            kxFrequencyBuffer copy = buffer;
            kfFrequencyMultiply(buffer, copy);
            kfFrequencyConjugate(copy);
        }
    } catch (const kxFrequencyDefs::Errors&) {
    }
    try {
        if (buffer.width() * buffer.height() <= 65536) {
            kxPelBuffer<unsigned char> image8;
            kfInverseFFT<unsigned char>(buffer, image8, true, false);
            kxPelBuffer<double> imageD;
            kfInverseFFT<double>(buffer, imageD, false, true);
        }
    } catch (const kxFrequencyDefs::Errors&) {
    } catch (const kx_PelBuffer::Error&) {
    }

    kxMemoryArchive out;
    out || buffer;
    kxMemoryArchive again(out.bytes());
    kxFrequencyBuffer reloaded;
    again || reloaded;
    return 0;
}
