// kxfreq.Spectrum: a frequency buffer, its numpy views and its persistence.
//
// Spectrum.array shares the store with numpy without a copy, through the
// buffer's public element view. The store keeps its address while its padded
// size does, so every operation that could give it another size is refused
// while views exist.
#include "module.h"

#include <pybind11/complex.h>

#include <complex>
#include <utility>
#include <vector>

namespace kxpy {

void requireData(const kxFrequencyBuffer& b)
{
    (void)b.width();   // the library's own check and message
}

void requireFrequencyData(const kxFrequencyBuffer& b)
{
    (void)b.get(0, 0, false);   // Uninitialized, then InvalidBuffer, as every element read
}

void Spectrum::guardResize(long newPaddedWidth, long newPaddedHeight) const
{
    if (!hasViews())
        return;
    const kxFrequencyBuffer::ElementView<const float> v = buffer.elements();
    if (v.data && v.width == newPaddedWidth && v.height == newPaddedHeight)
        return;
    throw py::value_error("cannot resize a spectrum while numpy views of its data exist "
                          "(delete the arrays from Spectrum.array first, or use another output spectrum)");
}

void Spectrum::guardResizeLike(const kxFrequencyBuffer& model) const
{
    const kxFrequencyBuffer::ElementView<const float> v = model.elements();
    guardResize(v.width, v.height);
}

Spectrum& spectrumArg(const py::object& object, const char* name)
{
    if (!py::isinstance<Spectrum>(object))
        throw py::type_error(std::string(name) + " must be a kxfreq.Spectrum, not " +
                             py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>());
    return object.cast<Spectrum&>();
}

std::string bytesOf(const py::bytes& data)
{
    return static_cast<std::string>(data);
}

void requireConsumed(const kxArchive& archive, const char* what)
{
    if (archive.remaining() != 0)
        throw kxArchive::Error(std::string(what) + ": " + std::to_string(archive.remaining()) +
                               " bytes left over after the stored object");
}

namespace {

// What a numpy view holds: the spectrum (kept alive) and a view token.
struct ViewOwner {
    py::object spectrum;
    std::shared_ptr<int> token;
};

py::array spectrumView(py::object self)
{
    Spectrum& s = self.cast<Spectrum&>();
    requireFrequencyData(s.buffer);
    const kxFrequencyBuffer::ElementView<float> v = s.buffer.elements();
    auto* owner = new ViewOwner{self, s.views};
    py::capsule base(owner, [](void* p) { delete static_cast<ViewOwner*>(p); });
    const py::ssize_t element = static_cast<py::ssize_t>(sizeof(std::complex<float>));
    const py::ssize_t rowBytes = static_cast<py::ssize_t>(sizeof(float)) * v.rowStride;
    return py::array(py::dtype::of<std::complex<float>>(), {v.height, v.width}, {rowBytes, element},
                     reinterpret_cast<std::complex<float>*>(v.data), base);
}

py::bytes spectrumBytes(const Spectrum& s)
{
    kxMemoryArchive archive;
    archive || const_cast<kxFrequencyBuffer&>(s.buffer);
    const std::vector<unsigned char>& bytes = archive.bytes();
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

std::unique_ptr<Spectrum> spectrumFromBytes(const py::bytes& data)
{
    const std::string bytes = bytesOf(data);
    kxMemoryArchive archive(bytes.data(), bytes.size());
    auto s = std::make_unique<Spectrum>();
    archive || s->buffer;
    requireConsumed(archive, "Spectrum.from_bytes");
    return s;
}

py::object requestedSize(const Spectrum& s)
{
    requireData(s.buffer);
    const kxFrequencyBuffer::ElementView<const float> v = s.buffer.elements();
    return py::make_tuple(v.requestedWidth, v.requestedHeight);
}

std::unique_ptr<Spectrum> copyOf(const Spectrum& s)
{
    auto c = std::make_unique<Spectrum>();
    c->buffer = s.buffer;
    return c;
}

using ComponentGetter = kxPelBuffer<double> (kxFrequencyBuffer::*)(bool) const;

py::array component(const Spectrum& s, ComponentGetter getter, bool centered)
{
    kxPelBuffer<double> image;
    {
        py::gil_scoped_release release;
        image = (s.buffer.*getter)(centered);
    }
    return toArray<double>(image);
}

std::string spectrumRepr(const Spectrum& s)
{
    const kxFrequencyBuffer::ElementView<const float> v = s.buffer.elements();
    if (!v.data)
        return "kxfreq.Spectrum(<no data>)";
    std::string r = "kxfreq.Spectrum(" + std::to_string(v.width) + " x " + std::to_string(v.height) +
                    ", requested_size=(" + std::to_string(v.requestedWidth) + ", " +
                    std::to_string(v.requestedHeight) + ")";
    if (v.masked)
        r += ", band=(" + std::to_string(v.bandFirst) + ", " + std::to_string(v.bandLast) + ")";
    if (v.inverseComputed)
        r += ", inverse_computed";
    return r + ")";
}

}  // namespace

void bindSpectrum(py::module_& m)
{
    py::class_<Spectrum> spectrum(m, "Spectrum", R"doc(
A complex spectrum on a padded power-of-two grid (single precision).

Element (x, y) in storage order is frequency (x, y) for indices below half the
padded size and (x - width, y - height) above it, the zero frequency at (0, 0).
Spectrum() is empty (no data); Spectrum(width, height) is a zero spectrum
padded from that requested size.
)doc");
    spectrum.def(py::init([]() { return std::make_unique<Spectrum>(); }));
    spectrum.def(py::init([](long width, long height) {
                     if (width < 1 || height < 1)
                         refuseSize("width and height must be at least 1, not " +
                                               std::to_string(width) + " x " + std::to_string(height));
                     auto s = std::make_unique<Spectrum>();
                     s->buffer = kxFrequencyBuffer(width, height);
                     return s;
                 }),
                 py::arg("width"), py::arg("height"));
    spectrum.def_property_readonly("width", [](const Spectrum& s) { return s.buffer.width(); },
                                   "Padded width (a power of two).");
    spectrum.def_property_readonly("height", [](const Spectrum& s) { return s.buffer.height(); },
                                   "Padded height (a power of two).");
    spectrum.def_property_readonly("requested_size", &requestedSize,
                                   "(width, height) of the image the spectrum was made from.");
    spectrum.def_property_readonly(
        "initialized", [](const Spectrum& s) { return s.buffer.elements().data != nullptr; },
        "True when the spectrum has data.");
    spectrum.def_property_readonly("masked", [](const Spectrum& s) { return s.buffer.elements().masked; },
                                   "True when a filter recorded a band of rows outside which the data are zero.");
    spectrum.def_property_readonly(
        "band",
        [](const Spectrum& s) -> py::object {
            const kxFrequencyBuffer::ElementView<const float> v = s.buffer.elements();
            if (!v.masked)
                return py::none();
            return py::make_tuple(v.bandFirst, v.bandLast);
        },
        "(first, last) centred row indices of the masked band, inclusive; None when not masked.");
    spectrum.def_property_readonly(
        "inverse_computed", [](const Spectrum& s) { return s.buffer.elements().inverseComputed; },
        "True after an in-place inverse: the store holds the spatial result and frequency reads raise.");
    spectrum.def_property_readonly("array", &spectrumView, R"doc(
A writable complex64 view of shape (height, width) on the spectrum's own store,
in storage order, without a copy. The view keeps the spectrum alive. Raises
UninitializedError without data and InvalidBufferError after an in-place inverse.
)doc");
    spectrum.def(
        "__array__",
        [](py::object self, py::object dtype, py::object copy) -> py::object {
            py::array view = spectrumView(self);
            if (!dtype.is_none())
                return view.attr("astype")(dtype);
            if (!copy.is_none() && copy.cast<bool>())
                return view.attr("copy")();
            return std::move(view);
        },
        py::arg("dtype") = py::none(), py::arg("copy") = py::none(),
        "The view of Spectrum.array; a converted copy when dtype is given, a copy when copy is true.");
    spectrum.def(
        "get",
        [](const Spectrum& s, long x, long y, bool centered) {
            const kxPair<double> v = s.buffer.get(x, y, centered);
            return std::complex<double>(v.x(), v.y());
        },
        py::arg("x"), py::arg("y"), py::arg("centered") = false,
        "Element (x, y) as a complex number; centred: signed frequencies, -(width/2) <= x < (width+1)/2.");
    spectrum.def(
        "put",
        [](Spectrum& s, long x, long y, std::complex<double> value, bool centered) {
            s.buffer.put(x, y, kxPair<double>(value.real(), value.imag()), centered);
        },
        py::arg("x"), py::arg("y"), py::arg("value"), py::arg("centered") = false,
        "Sets element (x, y), rounded to single precision.");
    spectrum.def("copy", &copyOf, "An independent copy (data, sizes, band and flags).");
    spectrum.def("__copy__", &copyOf);
    spectrum.def("__deepcopy__", [](const Spectrum& s, py::object) { return copyOf(s); }, py::arg("memo"));
    spectrum.def(
        "real", [](const Spectrum& s, bool centered) { return component(s, &kxFrequencyBuffer::getRealImage, centered); },
        py::arg("centered") = false, "Real parts as a float64 array of the padded size.");
    spectrum.def(
        "imaginary",
        [](const Spectrum& s, bool centered) { return component(s, &kxFrequencyBuffer::getImaginaryImage, centered); },
        py::arg("centered") = false, "Imaginary parts as a float64 array of the padded size.");
    spectrum.def(
        "magnitude",
        [](const Spectrum& s, bool centered) { return component(s, &kxFrequencyBuffer::getMagnitudeImage, centered); },
        py::arg("centered") = false, "Magnitudes (computed in single precision) as a float64 array.");
    spectrum.def(
        "phase", [](const Spectrum& s, bool centered) { return component(s, &kxFrequencyBuffer::getPhaseImage, centered); },
        py::arg("centered") = false, "Phases, atan2 in (-pi, pi], as a float64 array.");
    spectrum.def("to_bytes", &spectrumBytes, "The spectrum's archive bytes, as a C++ kxArchive stores it.");
    spectrum.def_static("from_bytes", &spectrumFromBytes, py::arg("data"),
                        "A spectrum loaded from archive bytes; raises ArchiveError on malformed bytes.");
    spectrum.def("__eq__", [](const Spectrum& a, const Spectrum& b) { return a.buffer == b.buffer; },
                 py::is_operator());
    spectrum.attr("__hash__") = py::none();
    spectrum.def("__repr__", &spectrumRepr);
}

}  // namespace kxpy
