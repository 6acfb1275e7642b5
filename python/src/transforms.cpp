// Forward and inverse transforms, spectrum arithmetic and the display
// mapping. The GIL is released around the library's work, so separate
// spectra are processed in parallel by separate Python threads.
#include "module.h"

#include <pybind11/stl.h>

namespace kxpy {
namespace {

template <typename T>
std::unique_ptr<Spectrum> forwardOne(const py::array& a)
{
    auto s = std::make_unique<Spectrum>();
    StridedSource<T> source(a);
    py::gil_scoped_release release;
    kxPelBuffer<T> image = source.copy();
    kfForwardFFT<T>(image, s->buffer);
    return s;
}

template <typename T>
std::unique_ptr<Spectrum> forwardTwo(const py::array& re, const py::array& im)
{
    auto s = std::make_unique<Spectrum>();
    StridedSource<T> realSource(re), imagSource(im);
    py::gil_scoped_release release;
    kxPelBuffer<T> realImage = realSource.copy();
    kxPelBuffer<T> imagImage = imagSource.copy();
    kfForwardFFT<T>(realImage, imagImage, s->buffer);
    return s;
}

std::unique_ptr<Spectrum> forward(const py::object& image, const py::object& imag)
{
    const ImageArray re = imageArray(image, "image");
    if (imag.is_none())
        return withPixelType(re.type, [&](auto pixel) { return forwardOne<decltype(pixel)>(re.array); });
    const ImageArray im = imageArray(imag, "imag");
    if (im.type != re.type)
        throw py::type_error(std::string("image and imag must have the same dtype, not ") +
                             dtypeText(re.original) + " and " +
                             dtypeText(im.original));
    return withPixelType(re.type, [&](auto pixel) { return forwardTwo<decltype(pixel)>(re.array, im.array); });
}

template <typename T>
py::array inverseMagnitude(Spectrum& s, bool scale, bool inPlace)
{
    kxPelBuffer<T> image;
    {
        py::gil_scoped_release release;
        kfInverseFFT<T>(s.buffer, image, scale, inPlace);
    }
    return toArray<T>(image);
}

py::array inverse(Spectrum& s, const py::object& dtype, bool scale, bool inPlace)
{
    return withPixelType(pixelTypeNamed(dtype), [&](auto pixel) -> py::array {
        return inverseMagnitude<decltype(pixel)>(s, scale, inPlace);
    });
}

// The inverse forms that give a second image beside the magnitude (phase
// angles or quadrant codes): `worker(pixel, image, second)` runs without
// the GIL.
template <typename Second, typename Worker>
py::tuple inverseWithSecond(const py::object& dtype, Worker worker)
{
    return withPixelType(pixelTypeNamed(dtype), [&](auto pixel) {
        using T = decltype(pixel);
        kxPelBuffer<T> image;
        kxPelBuffer<Second> second;
        {
            py::gil_scoped_release release;
            worker(pixel, image, second);
        }
        return py::make_tuple(toArray<T>(image), toArray<Second>(second));
    });
}

py::tuple inverseAngle(Spectrum& s, const py::object& dtype, bool scale, bool inPlace)
{
    return inverseWithSecond<double>(dtype, [&](auto pixel, auto& image, auto& angle) {
        kfInverseFFTAngle<decltype(pixel)>(s.buffer, image, angle, scale, inPlace);
    });
}

py::tuple inverseQuadrant(Spectrum& s, const py::object& dtype, bool scale, bool inPlace)
{
    return inverseWithSecond<unsigned char>(dtype, [&](auto pixel, auto& image, auto& quadrant) {
        kfInverseFFTQuadrant<decltype(pixel)>(s.buffer, image, quadrant, scale, inPlace);
    });
}

py::tuple inverseComplex(Spectrum& s, bool inPlace)
{
    kxPelBuffer<double> re, im;
    {
        py::gil_scoped_release release;
        kfInverseFFT(s.buffer, re, im, inPlace);
    }
    return py::make_tuple(toArray<double>(re), toArray<double>(im));
}

kxFrequencyDefs::FrequencyMapping mappingNamed(const std::string& name)
{
    if (name == "clip")
        return kxFrequencyDefs::eMapClip;
    if (name == "linear")
        return kxFrequencyDefs::eMapLinear;
    if (name == "range")
        return kxFrequencyDefs::eMapLinearRange;
    if (name == "log")
        return kxFrequencyDefs::eMapLog;
    if (name == "phase")
        return kxFrequencyDefs::eMapPhase;
    refuseArgument("mapping must be one of \"clip\", \"linear\", \"range\", \"log\", \"phase\", not \"" +
                          name + "\"");
}

// Any real array is mapped through its float64 values (every accepted dtype
// converts to float64 exactly).
py::array mapImage(const py::object& object, const std::string& mapping, double low, double high)
{
    ImageArray a = imageArray(object, "array");
    const kxFrequencyDefs::FrequencyMapping m = mappingNamed(mapping);
    if (a.type != PixelType::f64)
        a.array = a.array.attr("astype")(py::dtype::of<double>());
    StridedSource<double> source(a.array);
    kxPelBuffer<unsigned char> result;
    {
        py::gil_scoped_release release;
        kxPelBuffer<double> image = source.copy();
        result = kfFrequencyMapImage(image, m, low, high);
    }
    return toArray<unsigned char>(result);
}

// out = a (op) b, a new spectrum unless `out` is given.
using Binary = void (*)(const kxFrequencyBuffer&, const kxFrequencyBuffer&, kxFrequencyBuffer&);

py::object binary(Binary op, Spectrum& a, Spectrum& b, py::object out)
{
    if (out.is_none())
        out = py::cast(std::make_unique<Spectrum>());
    Spectrum& result = spectrumArg(out, "out");
    if (a.buffer.elements().data && b.buffer.elements().data && &result != &a && &result != &b)
        result.guardResizeLike(a.buffer);
    {
        py::gil_scoped_release release;
        op(a.buffer, b.buffer, result.buffer);
    }
    return out;
}

py::object conjugate(Spectrum& a, py::object out)
{
    if (out.is_none())
        out = py::cast(std::make_unique<Spectrum>());
    Spectrum& result = spectrumArg(out, "out");
    if (&result == &a) {
        py::gil_scoped_release release;
        kfFrequencyConjugate(result.buffer);
        return out;
    }
    if (a.buffer.elements().data)
        result.guardResizeLike(a.buffer);
    {
        py::gil_scoped_release release;
        kfFrequencyConjugate(a.buffer, result.buffer);
    }
    return out;
}

}  // namespace

void bindTransforms(py::module_& m)
{
    m.def("forward", &forward, py::arg("image"), py::arg("imag") = py::none(), R"doc(
The unscaled 2-D FFT of a 2-D image (any strides), zero-padded to powers of
two; with `imag`, of the complex image image + i imag (same shape, and a dtype
converted to the same pixel type). uint8, uint16 and float64 are transformed
as they are; bool as uint8 0 and 1; float16, float32 and integers as float64,
exactly (64-bit integers beyond 2**53 are refused).
)doc");
    m.def("inverse", &inverse, py::arg("spectrum"), py::arg("dtype") = py::dtype::of<std::uint8_t>(),
          py::arg("scale") = false, py::arg("in_place") = false, R"doc(
The magnitude of the inverse divided by width x height, cropped to the requested
size, as an array of `dtype` (uint8, uint16 or float64). Integer results are
rounded (0.5 added, then truncated) and keep their low bits, without clamping;
`scale` stretches the image's own range to the full pixel range. `in_place`
overwrites the spectrum's store, after which its frequency data cannot be read.
)doc");
    m.def("inverse_angle", &inverseAngle, py::arg("spectrum"), py::arg("dtype") = py::dtype::of<std::uint8_t>(),
          py::arg("scale") = false, py::arg("in_place") = false,
          "As inverse(), and the phase angle of each pixel (float64 radians): (image, angle).");
    m.def("inverse_quadrant", &inverseQuadrant, py::arg("spectrum"),
          py::arg("dtype") = py::dtype::of<std::uint8_t>(), py::arg("scale") = false, py::arg("in_place") = false,
          "As inverse(), and a uint8 quadrant code (1: real part negative, +2: imaginary part negative).");
    m.def("inverse_complex", &inverseComplex, py::arg("spectrum"), py::arg("in_place") = false,
          "The scaled inverse as (real, imag) float64 arrays of the requested size.");

    m.def(
        "multiply", [](Spectrum& a, Spectrum& b, py::object out) { return binary(&kfFrequencyMultiply, a, b, out); },
        py::arg("a"), py::arg("b"), py::arg("out") = py::none(),
        "a x b element by element (complex product), into `out` (may be a or b) or a new spectrum.");
    m.def(
        "add", [](Spectrum& a, Spectrum& b, py::object out) { return binary(&kfFrequencyAdd, a, b, out); },
        py::arg("a"), py::arg("b"), py::arg("out") = py::none(), "a + b, into `out` or a new spectrum.");
    m.def(
        "subtract", [](Spectrum& a, Spectrum& b, py::object out) { return binary(&kfFrequencySubtract, a, b, out); },
        py::arg("a"), py::arg("b"), py::arg("out") = py::none(), "a - b, into `out` or a new spectrum.");
    m.def("conjugate", &conjugate, py::arg("a"), py::arg("out") = py::none(),
          "The complex conjugate of a, into `out` (may be a) or a new spectrum.");

    m.def("map_image", &mapImage, py::arg("array"), py::arg("mapping") = "log", py::arg("low") = 0.0,
          py::arg("high") = 0.0, R"doc(
A 2-D real array's float64 values mapped to a uint8 display image: "clip" (the
value, clamped), "linear" (the data's range stretched), "range" (low..high
stretched, clamped), "log" (logarithmic stretch of the data's range) or
"phase" (radians to grey).
)doc");
}

}  // namespace kxpy
