// The C++ side of the Python tests: runs one library operation on inputs
// read from files and writes its result, so that the tests can compare the
// module's results with the library's bit for bit.
//
// Images are raw little-endian pixels, row-major without padding; spectra
// and filters are the library's archive bytes.
//
//   reference forward TYPE W H IMAGE OUT
//   reference forward2 TYPE W H REAL IMAG OUT
//   reference filter gabor|gabor_reject SX SY PX PY ANGLE FREQ W H DC IN OUT FILTER_OUT
//   reference filter band_pass|band_reject SIGMA PLATEAU FREQ W H DC IN OUT FILTER_OUT
//   reference filter image TRANSFER IN OUT FILTER_OUT
//   reference filter load FILTER IN OUT FILTER_OUT
//   reference inverse magnitude|angle|quadrant TYPE SCALE IN OUT [SECOND_OUT]
//   reference inverse complex - 0 IN REAL_OUT IMAG_OUT
//   reference component real|imaginary|magnitude|phase CENTERED IN OUT
//   reference map clip|linear|range|log|phase LOW HIGH W H IN OUT
//   reference arith multiply|add|subtract A B OUT
//   reference arith conjugate A - OUT
//
// TYPE is u8, u16 or f64. Numbers are read with strtod/strtol.
#include <kx/freqfilt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

std::vector<unsigned char> readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const void* data, std::size_t size)
{
    std::ofstream out(path, std::ios::binary);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!out)
        throw std::runtime_error("cannot write " + path);
}

double number(const char* text) { return std::strtod(text, nullptr); }
long integer(const char* text) { return std::strtol(text, nullptr, 10); }

template <typename T>
kxPelBuffer<T> readImage(const std::string& path, long width, long height)
{
    const std::vector<unsigned char> bytes = readFile(path);
    if (bytes.size() != sizeof(T) * static_cast<std::size_t>(width * height))
        throw std::runtime_error("wrong size of " + path);
    kxPelBuffer<T> image(width, height, 32);
    for (long y = 0; y < height; ++y)
        std::memcpy(image.pointToOffset() + y * image.rowUpdate(), bytes.data() + sizeof(T) * y * width,
                    sizeof(T) * width);
    return image;
}

template <typename T>
void writeImage(const std::string& path, const kxPelBuffer_const<T>& image)
{
    std::vector<T> pixels(static_cast<std::size_t>(image.width() * image.height()));
    for (long y = 0; y < image.height(); ++y)
        std::memcpy(pixels.data() + y * image.width(), image.pointToOffset() + y * image.rowUpdate(),
                    sizeof(T) * image.width());
    writeFile(path, pixels.data(), sizeof(T) * pixels.size());
}

kxFrequencyBuffer readSpectrum(const std::string& path)
{
    kxMemoryArchive archive(readFile(path));
    kxFrequencyBuffer buffer;
    archive || buffer;
    return buffer;
}

void writeSpectrum(const std::string& path, kxFrequencyBuffer& buffer)
{
    kxMemoryArchive archive;
    archive || buffer;
    writeFile(path, archive.bytes().data(), archive.bytes().size());
}

void writeFilter(const std::string& path, const kxFrequencyFilter& filter)
{
    kxMemoryArchive archive;
    archive.storeObject(&filter);
    writeFile(path, archive.bytes().data(), archive.bytes().size());
}

template <typename T>
int forward(char** a)
{
    const long w = integer(a[1]), h = integer(a[2]);
    kxFrequencyBuffer buffer;
    if (std::strcmp(a[-1], "forward2") == 0) {
        kfForwardFFT<T>(readImage<T>(a[3], w, h), readImage<T>(a[4], w, h), buffer);
        writeSpectrum(a[5], buffer);
    } else {
        kfForwardFFT<T>(readImage<T>(a[3], w, h), buffer);
        writeSpectrum(a[4], buffer);
    }
    return 0;
}

int filter(int argc, char** argv)
{
    const std::string kind = argv[2];
    char** a = argv + 3;
    std::unique_ptr<kxFrequencyFilter> f;
    int used = 0;
    if (kind == "gabor" || kind == "gabor_reject") {
        const kxPair<double> sigma(number(a[0]), number(a[1])), plateau(number(a[2]), number(a[3]));
        const kxRadian angle(number(a[4]));
        const double frequency = number(a[5]);
        const kxPair<long> size(integer(a[6]), integer(a[7]));
        const long dc = integer(a[8]);
        if (kind == "gabor")
            f = std::make_unique<kxFrequencyFilterGabor>(sigma, plateau, angle, frequency, size, dc);
        else
            f = std::make_unique<kxFrequencyFilterGaborReject>(sigma, plateau, angle, frequency, size, dc);
        used = 9;
    } else if (kind == "band_pass" || kind == "band_reject") {
        const kxPair<long> size(integer(a[3]), integer(a[4]));
        if (kind == "band_pass")
            f = std::make_unique<kxFrequencyFilterBandPass>(number(a[0]), number(a[1]), number(a[2]), size,
                                                            integer(a[5]));
        else
            f = std::make_unique<kxFrequencyFilterBandReject>(number(a[0]), number(a[1]), number(a[2]), size,
                                                              integer(a[5]));
        used = 6;
    } else if (kind == "image") {
        f = std::make_unique<kxFrequencyFilterImage>(readSpectrum(a[0]));
        used = 1;
    } else if (kind == "load") {
        kxMemoryArchive archive(readFile(a[0]));
        std::shared_ptr<kxFrequencyFilter> loaded = archive.loadObjectAs<kxFrequencyFilter>();
        f.reset(loaded->clone());
        used = 1;
    } else {
        throw std::runtime_error("unknown filter " + kind);
    }
    if (argc != 3 + used + 3)
        throw std::runtime_error("wrong number of arguments for filter " + kind);
    kxFrequencyBuffer buffer = readSpectrum(a[used]);
    f->apply(buffer);
    writeSpectrum(a[used + 1], buffer);
    writeFilter(a[used + 2], *f);
    return 0;
}

template <typename T>
int inverse(const std::string& mode, bool scale, char** a)
{
    kxFrequencyBuffer buffer = readSpectrum(a[0]);
    kxPelBuffer<T> image;
    if (mode == "magnitude") {
        kfInverseFFT<T>(buffer, image, scale, false);
    } else if (mode == "angle") {
        kxPelBuffer<double> angle;
        kfInverseFFTAngle<T>(buffer, image, angle, scale, false);
        writeImage<double>(a[2], angle);
    } else {
        kxPelBuffer<unsigned char> quadrant;
        kfInverseFFTQuadrant<T>(buffer, image, quadrant, scale, false);
        writeImage<unsigned char>(a[2], quadrant);
    }
    writeImage<T>(a[1], image);
    return 0;
}

int run(int argc, char** argv)
{
    if (argc < 3)
        throw std::runtime_error("usage: reference COMMAND ...");
    const std::string command = argv[1];
    if (command == "forward" || command == "forward2") {
        const std::string type = argv[2];
        if (type == "u8")
            return forward<unsigned char>(argv + 2);
        if (type == "u16")
            return forward<unsigned short>(argv + 2);
        return forward<double>(argv + 2);
    }
    if (command == "filter")
        return filter(argc, argv);
    if (command == "inverse") {
        const std::string mode = argv[2], type = argv[3];
        const bool scale = integer(argv[4]) != 0;
        if (mode == "complex") {
            kxFrequencyBuffer buffer = readSpectrum(argv[5]);
            kxPelBuffer<double> re, im;
            kfInverseFFT(buffer, re, im, false);
            writeImage<double>(argv[6], re);
            writeImage<double>(argv[7], im);
            return 0;
        }
        if (type == "u8")
            return inverse<unsigned char>(mode, scale, argv + 5);
        if (type == "u16")
            return inverse<unsigned short>(mode, scale, argv + 5);
        return inverse<double>(mode, scale, argv + 5);
    }
    if (command == "component") {
        const std::string which = argv[2];
        const bool centered = integer(argv[3]) != 0;
        const kxFrequencyBuffer buffer = readSpectrum(argv[4]);
        kxPelBuffer<double> image = which == "real"        ? buffer.getRealImage(centered)
                                    : which == "imaginary" ? buffer.getImaginaryImage(centered)
                                    : which == "magnitude" ? buffer.getMagnitudeImage(centered)
                                                           : buffer.getPhaseImage(centered);
        writeImage<double>(argv[5], image);
        return 0;
    }
    if (command == "map") {
        const std::string name = argv[2];
        const kxFrequencyDefs::FrequencyMapping mapping =
            name == "clip"     ? kxFrequencyDefs::eMapClip
            : name == "linear" ? kxFrequencyDefs::eMapLinear
            : name == "range"  ? kxFrequencyDefs::eMapLinearRange
            : name == "log"    ? kxFrequencyDefs::eMapLog
                               : kxFrequencyDefs::eMapPhase;
        const kxPelBuffer<double> source = readImage<double>(argv[7], integer(argv[5]), integer(argv[6]));
        writeImage<unsigned char>(argv[8], kfFrequencyMapImage(source, mapping, number(argv[3]), number(argv[4])));
        return 0;
    }
    if (command == "arith") {
        const std::string op = argv[2];
        const kxFrequencyBuffer a = readSpectrum(argv[3]);
        kxFrequencyBuffer result;
        if (op == "conjugate") {
            kfFrequencyConjugate(a, result);
        } else {
            const kxFrequencyBuffer b = readSpectrum(argv[4]);
            if (op == "multiply")
                kfFrequencyMultiply(a, b, result);
            else if (op == "add")
                kfFrequencyAdd(a, b, result);
            else
                kfFrequencySubtract(a, b, result);
        }
        writeSpectrum(argv[5], result);
        return 0;
    }
    throw std::runtime_error("unknown command " + command);
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "reference: %s\n", e.what());
        return 2;
    }
}
