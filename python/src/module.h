#pragma once
// Shared by the files of the kxfreq Python module: the pixel types an array
// crosses the boundary in, the Spectrum wrapper, and one bind function per
// file, which module.cpp calls in order.
#include <kx/analysis.h>
#include <kx/freqfilt.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace py = pybind11;

namespace kxpy {

// ---------------------------------------------------------------------------
// Arrays (arrays.cpp)

// The pixel types of the library's transforms (u8, u16, f64), and float32,
// which only the functions for images of any size take as it is.
enum class PixelType { u8, u16, f32, f64 };

// The pixel type a dtype argument names (numpy.uint8, "uint16", numpy.dtype(...)).
PixelType pixelTypeNamed(const py::object& dtype);

// An image argument: anything numpy.asarray accepts, 2-D (with eChannels,
// 2-D or 3-D), with at least one pixel, its values held exactly in one of the
// library's pixel types (with eFloat32, float32 stays float32). `original` is
// the dtype the caller gave.
struct ImageArray {
    py::array array;
    PixelType type;
    py::dtype original;
};
enum ImageAccepts : unsigned { eGrey = 0, eChannels = 1, eFloat32 = 2 };
ImageArray imageArray(const py::object& object, const char* what, unsigned accepts = eGrey);

// A result computed in float64 given the dtype of the input: floats rounded
// once, integers rounded (half away from zero) and clipped to the dtype's range, bool as
// value >= 0.5. Arrays already of that dtype are returned as they are.
py::array castLike(const py::array& result, const py::dtype& dtype);

// A dtype and a shape as Python writes them: "float32", "(3, 4)".
std::string dtypeText(const py::dtype& d);
std::string shapeText(const py::array& a);

// Calls f with a value of the pixel type: one switch for every function
// that serves the transforms' three types (an array accepted without
// eFloat32 is never float32).
template <typename F>
auto withPixelType(PixelType type, F f)
{
    switch (type) {
    case PixelType::u8: return f(std::uint8_t{});
    case PixelType::u16: return f(std::uint16_t{});
    case PixelType::f64: return f(double{});
    case PixelType::f32: break;
    }
    throw std::logic_error("float32 pixels reached a transform");
}

// The same for the four sample types of the functions for any size.
template <typename F>
auto withSampleType(PixelType type, F f)
{
    if (type == PixelType::f32)
        return f(float{});
    return withPixelType(type, f);
}

// A pel buffer holding a copy of a 2-D array of any strides. copy() may run
// without the GIL while the caller keeps the array alive.
template <typename T>
struct StridedSource {
    const char* base;
    long width, height;
    py::ssize_t rowStride, columnStride;

    explicit StridedSource(const py::array& a)
        : base(static_cast<const char*>(a.data())), width(static_cast<long>(a.shape(1))),
          height(static_cast<long>(a.shape(0))), rowStride(a.strides(0)), columnStride(a.strides(1))
    {
    }

    kxPelBuffer<T> copy() const
    {
        kxPelBuffer<T> image(width, height, 32);
        for (long y = 0; y < height; ++y) {
            const char* from = base + y * rowStride;
            T* to = image.pointToOffset() + y * image.rowUpdate();
            if (columnStride == static_cast<py::ssize_t>(sizeof(T))) {
                std::memcpy(to, from, sizeof(T) * static_cast<std::size_t>(width));
            } else {
                for (long x = 0; x < width; ++x)
                    std::memcpy(to + x, from + x * columnStride, sizeof(T));
            }
        }
        return image;
    }
};

template <typename T>
py::array_t<T> toArray(const kxPelBuffer_const<T>& image)
{
    py::array_t<T> out({static_cast<py::ssize_t>(image.height()), static_cast<py::ssize_t>(image.width())});
    T* to = out.mutable_data();
    for (long y = 0; y < image.height(); ++y)
        std::memcpy(to + y * image.width(), image.pointToOffset() + y * image.rowUpdate(),
                    sizeof(T) * static_cast<std::size_t>(image.width()));
    return out;
}

// ---------------------------------------------------------------------------
// Spectrum (spectrum.cpp): a frequency buffer and the bookkeeping of its
// numpy views

struct Spectrum {
    kxFrequencyBuffer buffer;
    // One reference per live numpy view of the store (held by each view's
    // base object); use_count() - 1 views exist.
    std::shared_ptr<int> views = std::make_shared<int>(0);

    bool hasViews() const { return views.use_count() > 1; }

    // Refuses an operation that may give the store another padded size (and
    // so another address) while numpy views of it exist.
    void guardResize(long newPaddedWidth, long newPaddedHeight) const;
    void guardResizeLike(const kxFrequencyBuffer& model) const;
};

// A Spectrum argument passed as a Python object (outputs, and inputs that
// are handed back).
Spectrum& spectrumArg(const py::object& object, const char* name);

// The archive bytes of a stored object, and the check that nothing follows it.
std::string bytesOf(const py::bytes& data);
void requireConsumed(const kxArchive& archive, const char* what);

// The library's own checks (and messages) before the module reads a
// spectrum's store: Uninitialized without data; with frequencyData, also
// InvalidBuffer after an in-place inverse.
void requireData(const kxFrequencyBuffer& b);
void requireFrequencyData(const kxFrequencyBuffer& b);

// The module's own refusals of values, as the library's classes (so that
// Python sees kxfreq.InvalidArgumentError and kxfreq.InvalidSizeError, both
// also ValueErrors), with messages that name what was given (errors.cpp).
[[noreturn]] void refuseArgument(const std::string& message);
[[noreturn]] void refuseSize(const std::string& message);

// ---------------------------------------------------------------------------
// Bind functions, one per file

void bindErrors(py::module_& m);
void bindSpectrum(py::module_& m);
void bindTransforms(py::module_& m);
void bindFilters(py::module_& m);
void bindAnalysis(py::module_& m);
void bindTiled(py::module_& m);

// A window by name: "hann", "tukey" (with its taper fraction) or "none".
kxWindow windowNamed(const std::string& name, double taper);

// Peaks, texture removal and registration of images of any size
// (tiled.cpp), which the analysis functions use beyond one transform.
std::vector<kxPeriodicComponent> findPeaksOfImage(const py::object& image, const kxPeriodicSearchOptions& search);
py::array removeTextureTiled(const py::object& image, const kxTextureRemovalOptions& removal, long tile,
                             const py::object& margin, long jobs);
// Registration of images larger than one transform: a coarse shift on
// reduced copies refined on full-resolution windows.
kxPhaseCorrelation phaseCorrelateLarge(const ImageArray& reference, const ImageArray& moving,
                                       const kxPhaseCorrelationOptions& correlation);

}  // namespace kxpy
