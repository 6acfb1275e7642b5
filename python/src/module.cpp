// The kxfreq Python module: numpy arrays in and out of the library's
// transforms, spectra and filters.
//
// Images cross the boundary as copies (a pel buffer owns its pixels); a
// spectrum's store is shared with numpy through Spectrum.array without a
// copy. The GIL is released around every transform, filter application,
// arithmetic and component image, so separate spectra are processed in
// parallel by separate Python threads.
#include "fft/buffer_access.h"

#include <kx/analysis.h>
#include <kx/freqfilt.h>

#include <pybind11/complex.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <complex>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace {

using Access = kx_FrequencyBufferAccess;

// ---------------------------------------------------------------------------
// Exceptions

struct ErrorClasses {
    py::object base;
    // By error number, 0x10006300 (InvalidArgument) to 0x10006305 (BadCoord).
    py::object byNumber[6];
    py::object archive;

    const py::object& of(long errorNumber) const
    {
        const long index = errorNumber - 0x10006300;
        return index >= 0 && index < 6 ? byNumber[index] : base;
    }
};

ErrorClasses& errorClasses()
{
    static ErrorClasses* classes = new ErrorClasses();   // lives as long as the interpreter
    return *classes;
}

py::object makeErrorClass(py::module_& m, const char* name, py::handle base, const char* doc)
{
    std::string qualified = std::string("kxfreq.") + name;
    PyObject* type = PyErr_NewExceptionWithDoc(qualified.c_str(), doc, base.ptr(), nullptr);
    if (!type)
        throw py::error_already_set();
    py::object cls = py::reinterpret_steal<py::object>(type);
    m.attr(name) = cls;
    return cls;
}

void raise(const py::object& cls, const std::string& message, long number)
{
    py::object instance = cls(message);
    instance.attr("error_number") = number;
    PyErr_SetObject(cls.ptr(), instance.ptr());
}

void registerErrors(py::module_& m)
{
    ErrorClasses& c = errorClasses();
    c.base = makeErrorClass(m, "Error", PyExc_Exception,
                            "Base of the library's errors; str() is the library's message and error_number "
                            "its error number.");
    struct Named {
        const char* name;
        const char* doc;
    };
    const Named named[6] = {
        {"InvalidArgumentError", "A parameter out of its range."},
        {"UninitializedError", "A spectrum without data, or a filter without a transfer function."},
        {"InvalidSizeError", "Sizes that do not match or are out of range."},
        {"UnboundWindowError", "An image without pixels."},
        {"InvalidBufferError", "A spectrum whose store holds the result of an in-place inverse."},
        {"BadCoordError", "Element coordinates outside the grid."},
    };
    for (int i = 0; i < 6; ++i)
        c.byNumber[i] = makeErrorClass(m, named[i].name, c.base, named[i].doc);
    c.archive = makeErrorClass(m, "ArchiveError", c.base,
                               "Bytes that are not a valid stored spectrum or filter.");

    py::register_exception_translator([](std::exception_ptr p) {
        if (!p)
            return;
        ErrorClasses& e = errorClasses();
        try {
            std::rethrow_exception(p);
        } catch (const kxFrequencyDefs::Errors& x) {
            raise(e.of(x.errorNumber()), x.message(), x.errorNumber());
        } catch (const kxArchive::Error& x) {
            raise(e.archive, x.message(), x.errorNumber());
        }
    });
}

// ---------------------------------------------------------------------------
// Images: numpy arrays to pel buffers and back

enum class PixelType { u8, u16, f64 };

const char* pixelName(PixelType t)
{
    return t == PixelType::u8 ? "uint8" : t == PixelType::u16 ? "uint16" : "float64";
}

// The pixel type of a dtype, by its kind and size (not by object identity:
// equal dtypes need not be the same object); false when it is none of them.
bool pixelTypeOfDtype(const py::dtype& d, PixelType& type)
{
    if (!d.attr("isnative").cast<bool>())
        return false;
    const std::string code = d.attr("char").cast<std::string>();
    if (code == "B")
        type = PixelType::u8;
    else if (code == "H")
        type = PixelType::u16;
    else if (code == "d")
        type = PixelType::f64;
    else
        return false;
    return true;
}

PixelType pixelTypeOf(const py::array& a, const char* what)
{
    PixelType type;
    if (!pixelTypeOfDtype(a.dtype(), type))
        throw py::type_error(std::string(what) + " must have dtype uint8, uint16 or float64 (native byte order), not " +
                             py::str(a.dtype()).cast<std::string>());
    return type;
}

// The pixel type a dtype argument names (numpy.uint8, "uint16", numpy.dtype(...)).
PixelType pixelTypeNamed(const py::object& dtype)
{
    py::dtype d = py::dtype::from_args(dtype);
    PixelType type;
    if (!pixelTypeOfDtype(d, type))
        throw py::type_error("dtype must be uint8, uint16 or float64, not " + py::str(d).cast<std::string>());
    return type;
}

// Calls f with a value of the pixel type: one switch for every function
// that serves the three dtypes.
template <typename F>
auto withPixelType(PixelType type, F f)
{
    switch (type) {
    case PixelType::u8: return f(std::uint8_t{});
    case PixelType::u16: return f(std::uint16_t{});
    default: return f(double{});
    }
}

py::array asImageArray(const py::object& object, const char* what)
{
    if (!py::isinstance<py::array>(object))
        throw py::type_error(std::string(what) + " must be a numpy array, not " +
                             py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>());
    py::array a = py::reinterpret_borrow<py::array>(object);
    if (a.ndim() != 2)
        throw py::value_error(std::string(what) + " must be 2-D (height, width), not " + std::to_string(a.ndim()) +
                              "-D");
    return a;
}

// A pel buffer holding a copy of a 2-D array of any strides. Call without
// the GIL only while the array is kept alive by the caller.
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

    // An empty array is an image without pixels (an unbound pel buffer).
    kxPelBuffer<T> copy() const
    {
        if (width == 0 || height == 0)
            return kxPelBuffer<T>();
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
// Spectrum: a frequency buffer, and the bookkeeping of its numpy views

struct Spectrum {
    kxFrequencyBuffer buffer;
    // One reference per live numpy view of the store (held by each view's
    // base object); use_count() - 1 views exist.
    std::shared_ptr<int> views = std::make_shared<int>(0);

    bool hasViews() const { return views.use_count() > 1; }

    // Refuses an operation that may reallocate the store (give it another
    // padded size) while numpy views of the store exist.
    void guardResize(long newPaddedWidth, long newPaddedHeight) const
    {
        if (!hasViews())
            return;
        if (Access::data(buffer) && Access::paddedWidth(buffer) == newPaddedWidth &&
            Access::paddedHeight(buffer) == newPaddedHeight)
            return;
        throw py::value_error("cannot resize a spectrum while numpy views of its data exist "
                              "(delete the arrays from Spectrum.array first, or use another output spectrum)");
    }
    void guardResizeLike(const kxFrequencyBuffer& model) const
    {
        guardResize(Access::paddedWidth(model), Access::paddedHeight(model));
    }
};

// A Spectrum argument passed as a Python object (outputs, and inputs that
// are handed back).
Spectrum& spectrumArg(const py::object& object, const char* name)
{
    if (!py::isinstance<Spectrum>(object))
        throw py::type_error(std::string(name) + " must be a kxfreq.Spectrum, not " +
                             py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>());
    return object.cast<Spectrum&>();
}

// What a numpy view holds: the spectrum (kept alive) and a view token.
struct ViewOwner {
    py::object spectrum;
    std::shared_ptr<int> token;
};

py::array spectrumView(py::object self)
{
    Spectrum& s = self.cast<Spectrum&>();
    const kxFrequencyBuffer& b = s.buffer;
    if (!Access::data(b))
        throw kxFrequencyDefs::Uninitialized("FrequencyBuffer has not been initialized");
    if (Access::inverseComputed(b))
        throw kxFrequencyDefs::InvalidBuffer("Cannot access frequency data once inverse has been computed.");
    const py::ssize_t W = Access::paddedWidth(b), H = Access::paddedHeight(b);
    auto* owner = new ViewOwner{self, s.views};
    py::capsule base(owner, [](void* p) { delete static_cast<ViewOwner*>(p); });
    const py::ssize_t element = static_cast<py::ssize_t>(sizeof(std::complex<float>));
    return py::array(py::dtype::of<std::complex<float>>(), {H, W}, {W * element, element},
                     reinterpret_cast<std::complex<float>*>(Access::data(b)), base);
}

py::bytes spectrumBytes(const Spectrum& s)
{
    kxMemoryArchive archive;
    archive || const_cast<kxFrequencyBuffer&>(s.buffer);
    const std::vector<unsigned char>& bytes = archive.bytes();
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
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
    if (!Access::data(s.buffer))
        throw kxFrequencyDefs::Uninitialized("FrequencyBuffer has not been initialized");
    return py::make_tuple(Access::requestedWidth(s.buffer), Access::requestedHeight(s.buffer));
}

// ---------------------------------------------------------------------------
// Forward and inverse transforms

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
    py::array re = asImageArray(image, "image");
    const PixelType t = pixelTypeOf(re, "image");
    if (imag.is_none())
        return withPixelType(t, [&](auto pixel) { return forwardOne<decltype(pixel)>(re); });
    py::array im = asImageArray(imag, "imag");
    if (pixelTypeOf(im, "imag") != t)
        throw py::type_error(std::string("image and imag must have the same dtype, not ") + pixelName(t) + " and " +
                             pixelName(pixelTypeOf(im, "imag")));
    return withPixelType(t, [&](auto pixel) { return forwardTwo<decltype(pixel)>(re, im); });
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

// ---------------------------------------------------------------------------
// Component images and the display mapping

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
    throw py::value_error("mapping must be one of \"clip\", \"linear\", \"range\", \"log\", \"phase\", not \"" +
                          name + "\"");
}

py::array mapImage(const py::object& object, const std::string& mapping, double low, double high)
{
    py::array a = asImageArray(object, "array");
    if (pixelTypeOf(a, "array") != PixelType::f64)
        throw py::type_error("array must have dtype float64, not " + py::str(a.dtype()).cast<std::string>());
    const kxFrequencyDefs::FrequencyMapping m = mappingNamed(mapping);
    StridedSource<double> source(a);
    kxPelBuffer<unsigned char> result;
    {
        py::gil_scoped_release release;
        kxPelBuffer<double> image = source.copy();
        result = kfFrequencyMapImage(image, m, low, high);
    }
    return toArray<unsigned char>(result);
}

// ---------------------------------------------------------------------------
// Arithmetic: out = a (op) b, a new spectrum unless `out` is given

using Binary = void (*)(const kxFrequencyBuffer&, const kxFrequencyBuffer&, kxFrequencyBuffer&);

py::object binary(Binary op, Spectrum& a, Spectrum& b, py::object out)
{
    if (out.is_none())
        out = py::cast(std::make_unique<Spectrum>());
    Spectrum& result = spectrumArg(out, "out");
    if (Access::data(a.buffer) && Access::data(b.buffer) && &result != &a && &result != &b)
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
    if (Access::data(a.buffer))
        result.guardResizeLike(a.buffer);
    {
        py::gil_scoped_release release;
        kfFrequencyConjugate(a.buffer, result.buffer);
    }
    return out;
}

// ---------------------------------------------------------------------------
// Filters

kxPair<double> pairOf(const std::pair<double, double>& t) { return kxPair<double>(t.first, t.second); }
kxPair<long> sizeOf(const std::pair<long, long>& t) { return kxPair<long>(t.first, t.second); }

std::string reprOf(const py::object& value) { return py::repr(value).cast<std::string>(); }

py::tuple tupleOf(const kxPair<double>& p) { return py::make_tuple(p.x(), p.y()); }
py::tuple tupleOf(const kxPair<long>& p) { return py::make_tuple(p.x(), p.y()); }

py::object apply(const kxFrequencyFilter& filter, py::object spectrumObject, py::object out)
{
    Spectrum& spectrum = spectrumArg(spectrumObject, "spectrum");
    if (out.is_none() || &spectrumArg(out, "out") == &spectrum) {
        py::gil_scoped_release release;
        filter.apply(spectrum.buffer);
        return spectrumObject;
    }
    Spectrum& dst = spectrumArg(out, "out");
    if (Access::data(spectrum.buffer))
        dst.guardResizeLike(spectrum.buffer);
    {
        py::gil_scoped_release release;
        filter.apply(spectrum.buffer, dst.buffer);
    }
    return out;
}

py::bytes filterBytes(const kxFrequencyFilter& filter)
{
    kxMemoryArchive archive;
    archive.storeObject(&filter);
    const std::vector<unsigned char>& bytes = archive.bytes();
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

std::shared_ptr<kxFrequencyFilter> loadFilter(const py::bytes& data)
{
    const std::string bytes = bytesOf(data);
    kxMemoryArchive archive(bytes.data(), bytes.size());
    std::shared_ptr<kxFrequencyFilter> filter = archive.loadObjectAs<kxFrequencyFilter>();
    if (!filter)
        throw kxArchive::Error("Filter.from_bytes: the bytes hold no filter");
    requireConsumed(archive, "Filter.from_bytes");
    return filter;
}

template <typename F>
std::shared_ptr<F> loadFilterAs(const py::bytes& data, const char* name)
{
    std::shared_ptr<F> filter = std::dynamic_pointer_cast<F>(loadFilter(data));
    if (!filter)
        throw kxArchive::Error(std::string(name) + ".from_bytes: the bytes hold another class of filter");
    return filter;
}

// to_bytes/from_bytes, copies and equality (pickling is added in __init__.py).
template <typename Class>
void addPersistence(Class& cls, const char* name)
{
    using F = typename Class::type;
    cls.def("to_bytes", [](const F& f) { return filterBytes(f); },
            "The filter's archive bytes (its class record and parameters), as a C++ kxArchive stores it.");
    cls.def_static(
        "from_bytes", [name](const py::bytes& data) { return loadFilterAs<F>(data, name); }, py::arg("data"),
        "A filter loaded from archive bytes; raises ArchiveError when they are not a filter of this class.");
    cls.def("__copy__", [](const F& f) { return std::make_shared<F>(f); });
    cls.def("__deepcopy__", [](const F& f, py::object) { return std::make_shared<F>(f); }, py::arg("memo"));
    cls.def("__eq__", [](const F& a, const F& b) { return a == b; }, py::is_operator());
    cls.attr("__hash__") = py::none();
}

// The bodies the pass/reject pairs share are bound as the private bases
// _GaborFilter and _RadialFilter, which carry the common properties, as in
// the C++ library; each public class adds its constructor, its DC radius
// and its persistence.
void bindFilterBodies(py::module_& m)
{
    using G = kx_GaborFilter;
    py::class_<G, kxFrequencyFilter, std::shared_ptr<G>> gabor(m, "_GaborFilter",
                                                              "What Gabor and GaborReject share.");
    gabor.def_property_readonly("sigma", [](const G& f) { return tupleOf(f.sigma()); },
                                "(along, across) standard deviations of the lobe, cycles per pixel.");
    gabor.def_property_readonly("plateau", [](const G& f) { return tupleOf(f.plateau()); },
                                "(along, across) half-widths of the flat top, cycles per pixel.");
    gabor.def_property_readonly("angle", [](const G& f) { return f.angle().toDouble(); },
                                "Direction of the lobe, radians.");
    gabor.def_property_readonly("frequency", [](const G& f) { return f.frequency(); },
                                "Distance of the lobe from the zero frequency, cycles per pixel.");
    gabor.def_property_readonly("size", [](const G& f) { return tupleOf(f.size()); },
                                "(width, height) of the spectra the filter applies to.");
    gabor.def_property_readonly("support_width", [](const G& f) { return f.supportWidth(); },
                                "Width of the gain table in frequency bins.");
    gabor.def_property_readonly("support_height", [](const G& f) { return f.supportHeight(); },
                                "Height of the gain table in frequency bins.");

    using R = kx_RadialFilter;
    py::class_<R, kxFrequencyFilter, std::shared_ptr<R>> radial(m, "_RadialFilter",
                                                               "What BandPass and BandReject share.");
    radial.def_property_readonly("sigma", [](const R& f) { return f.sigma(); },
                                 "Standard deviation of the ring's flanks, cycles per pixel.");
    radial.def_property_readonly("plateau", [](const R& f) { return f.plateau(); },
                                 "Half-width of the ring's flat top, cycles per pixel.");
    radial.def_property_readonly("frequency", [](const R& f) { return f.frequency(); },
                                 "Radius of the ring, cycles per pixel.");
    radial.def_property_readonly("size", [](const R& f) { return tupleOf(f.size()); },
                                 "(width, height) of the spectra the filter applies to.");
    radial.def_property_readonly("support_width", [](const R& f) { return f.supportWidth(); },
                                 "Length of the radial profile in frequency bins.");
}

// A public filter class on its body: the constructor `init`, the DC radius
// under its Python name, a repr and persistence.
template <typename F, typename Body, typename Init, typename... Args>
void bindFilter(py::module_& m, const char* name, const char* doc, long (F::*radius)() const, Init init,
                Args... args)
{
    py::class_<F, Body, std::shared_ptr<F>> cls(m, name, doc);
    cls.def(py::init(init), args...);
    cls.def_property_readonly("dc_radius", [radius](const F& f) { return (f.*radius)(); },
                              "Radius of the square around the zero frequency (0: none).");
    cls.def("__repr__", [name](const py::object& self) {
        std::string fields;
        for (const char* field : {"sigma", "plateau", "angle", "frequency", "size", "dc_radius"})
            if (py::hasattr(self, field))
                fields += std::string(fields.empty() ? "" : ", ") + field + "=" + reprOf(self.attr(field));
        return std::string("kxfreq.") + name + "(" + fields + ")";
    });
    addPersistence(cls, name);
}

template <typename F>
void bindGabor(py::module_& m, const char* name, const char* doc, long (F::*radius)() const)
{
    bindFilter<F, kx_GaborFilter>(
        m, name, doc, radius,
        [](const std::pair<double, double>& sigma, const std::pair<double, double>& plateau, double angle,
           double frequency, const std::pair<long, long>& size, long dcRadius) {
            return std::make_shared<F>(pairOf(sigma), pairOf(plateau), kxRadian(angle), frequency, sizeOf(size),
                                       dcRadius);
        },
        py::arg("sigma"), py::arg("plateau"), py::arg("angle"), py::arg("frequency"), py::arg("size"),
        py::arg("dc_radius"));
}

template <typename F>
void bindRadial(py::module_& m, const char* name, const char* doc, long (F::*radius)() const)
{
    bindFilter<F, kx_RadialFilter>(
        m, name, doc, radius,
        [](double sigma, double plateau, double frequency, const std::pair<long, long>& size, long dcRadius) {
            return std::make_shared<F>(sigma, plateau, frequency, sizeOf(size), dcRadius);
        },
        py::arg("sigma"), py::arg("plateau"), py::arg("frequency"), py::arg("size"), py::arg("dc_radius"));
}

}  // namespace

// ---------------------------------------------------------------------------
// Analysis: registration, periodic components, texture removal

kxWindow windowNamed(const std::string& name, double taper)
{
    if (name == "hann")
        return kxWindow::hann();
    if (name == "tukey")
        return kxWindow::tukey(taper);
    if (name == "none")
        return kxWindow::none();
    throw py::value_error("window must be \"hann\", \"tukey\" or \"none\", not \"" + name + "\"");
}

template <typename T>
kxPhaseCorrelation correlate(const py::array& reference, const py::array& moving, const kxPhaseCorrelationOptions& o)
{
    StridedSource<T> ref(reference), mov(moving);
    py::gil_scoped_release release;
    const kxPelBuffer<T> a = ref.copy(), b = mov.copy();
    return kfPhaseCorrelate<T>(a, b, o);
}

py::tuple phaseCorrelate(const py::object& reference, const py::object& moving, const std::string& window,
                         double taper, bool removeMean)
{
    py::array ref = asImageArray(reference, "reference");
    py::array mov = asImageArray(moving, "moving");
    const PixelType t = pixelTypeOf(ref, "reference");
    if (pixelTypeOf(mov, "moving") != t)
        throw py::type_error(std::string("reference and moving must have the same dtype, not ") + pixelName(t) +
                             " and " + pixelName(pixelTypeOf(mov, "moving")));
    kxPhaseCorrelationOptions o;
    o.window = windowNamed(window, taper);
    o.removeMean = removeMean;
    const kxPhaseCorrelation r =
        withPixelType(t, [&](auto pixel) { return correlate<decltype(pixel)>(ref, mov, o); });
    return py::make_tuple(r.dx, r.dy, r.confidence);
}

py::dict componentDict(const kxPeriodicComponent& c)
{
    py::dict d;
    d["fx"] = c.fx;
    d["fy"] = c.fy;
    d["frequency"] = c.frequency;
    d["period"] = c.period;
    d["angle"] = c.angle;
    d["strength"] = c.strength;
    d["sigma"] = tupleOf(c.sigma);
    py::list harmonics;
    for (const kxPeriodicHarmonic& h : c.harmonics) {
        py::dict hd;
        hd["order"] = h.order;
        hd["fx"] = h.fx;
        hd["fy"] = h.fy;
        hd["strength"] = h.strength;
        harmonics.append(hd);
    }
    d["harmonics"] = harmonics;
    return d;
}

py::list findPeaks(const Spectrum& s, long maxPeaks)
{
    kxPeriodicSearchOptions o;
    o.maxComponents = maxPeaks;
    std::vector<kxPeriodicComponent> found;
    {
        py::gil_scoped_release release;
        found = kfFindPeriodicComponents(s.buffer, o);
    }
    py::list out;
    for (const kxPeriodicComponent& c : found)
        out.append(componentDict(c));
    return out;
}

template <typename T>
py::array removeTextureT(const py::array& a, const kxTextureRemovalOptions& o)
{
    StridedSource<T> source(a);
    kxPelBuffer<T> result;
    {
        py::gil_scoped_release release;
        const kxPelBuffer<T> image = source.copy();
        result = kfRemovePeriodicTexture<T>(image, o);
    }
    return toArray<T>(result);
}

py::array removeTexture(const py::object& image, long maxPeaks)
{
    py::array a = asImageArray(image, "image");
    kxTextureRemovalOptions o;
    o.search.maxComponents = maxPeaks;
    return withPixelType(pixelTypeOf(a, "image"),
                         [&](auto pixel) -> py::array { return removeTextureT<decltype(pixel)>(a, o); });
}

PYBIND11_MODULE(_kxfreq, m)
{
    m.doc() = "kxfreq: frequency-domain image processing on numpy arrays.";
    registerErrors(m);

    // Spectrum ---------------------------------------------------------------
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
                         throw py::value_error("width and height must be at least 1");
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
    spectrum.def_property_readonly("initialized", [](const Spectrum& s) { return Access::data(s.buffer) != nullptr; },
                                   "True when the spectrum has data.");
    spectrum.def_property_readonly("masked", [](const Spectrum& s) { return Access::masked(s.buffer) != 0; },
                                   "True when a filter recorded a band of rows outside which the data are zero.");
    spectrum.def_property_readonly(
        "band",
        [](const Spectrum& s) -> py::object {
            if (Access::masked(s.buffer) == 0)
                return py::none();
            return py::make_tuple(Access::maskedMiny(s.buffer), Access::maskedMaxy(s.buffer));
        },
        "(first, last) centred row indices of the masked band, inclusive; None when not masked.");
    spectrum.def_property_readonly(
        "inverse_computed", [](const Spectrum& s) { return Access::inverseComputed(s.buffer); },
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
    spectrum.def("copy", [](const Spectrum& s) {
        auto c = std::make_unique<Spectrum>();
        c->buffer = s.buffer;
        return c;
    }, "An independent copy (data, sizes, band and flags).");
    spectrum.def("__copy__", [](const Spectrum& s) {
        auto c = std::make_unique<Spectrum>();
        c->buffer = s.buffer;
        return c;
    });
    spectrum.def("__deepcopy__", [](const Spectrum& s, py::object) {
        auto c = std::make_unique<Spectrum>();
        c->buffer = s.buffer;
        return c;
    }, py::arg("memo"));
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
    spectrum.def("__repr__", [](const Spectrum& s) {
        if (!Access::data(s.buffer))
            return std::string("kxfreq.Spectrum(<no data>)");
        std::string r = "kxfreq.Spectrum(" + std::to_string(Access::paddedWidth(s.buffer)) + " x " +
                        std::to_string(Access::paddedHeight(s.buffer)) + ", requested_size=(" +
                        std::to_string(Access::requestedWidth(s.buffer)) + ", " +
                        std::to_string(Access::requestedHeight(s.buffer)) + ")";
        if (Access::masked(s.buffer))
            r += ", band=(" + std::to_string(Access::maskedMiny(s.buffer)) + ", " +
                 std::to_string(Access::maskedMaxy(s.buffer)) + ")";
        if (Access::inverseComputed(s.buffer))
            r += ", inverse_computed";
        return r + ")";
    });

    // Transforms -------------------------------------------------------------
    m.def("forward", &forward, py::arg("image"), py::arg("imag") = py::none(), R"doc(
The unscaled 2-D FFT of a 2-D uint8, uint16 or float64 array (any strides),
zero-padded to powers of two; with `imag`, of the complex image image + i imag
(same dtype and shape).
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

    // Arithmetic -------------------------------------------------------------
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
A 2-D float64 array mapped to a uint8 display image: "clip" (the value, clamped),
"linear" (the data's range stretched), "range" (low..high stretched, clamped),
"log" (logarithmic stretch of the data's range) or "phase" (radians to grey).
)doc");

    // Filters ----------------------------------------------------------------
    py::class_<kxFrequencyFilter, std::shared_ptr<kxFrequencyFilter>> filter(m, "Filter", R"doc(
Base of the frequency filters. apply(spectrum) filters in place; apply(spectrum,
out) writes the filtered spectrum into `out` and leaves `spectrum` alone.
)doc");
    filter.def("apply", &apply, py::arg("spectrum").none(false), py::arg("out") = py::none(),
               "Multiplies the spectrum by the transfer function, in place or into `out`; returns the result.");
    filter.def("to_bytes", [](const kxFrequencyFilter& f) { return filterBytes(f); },
               "The filter's archive bytes (its class record and parameters).");
    filter.def_static("from_bytes", &loadFilter, py::arg("data"),
                      "A filter of whatever class the archive bytes hold.");

    bindFilterBodies(m);
    bindGabor<kxFrequencyFilterGabor>(m, "Gabor", R"doc(
Oriented band-pass: a Gaussian lobe (with an optional flat top) `frequency`
cycles per pixel from the zero frequency in direction `angle` (radians), on one
side only. sigma and plateau are (along, across) that direction, in cycles per
pixel; size is the (width, height) of the images; a square of 2 dc_radius - 1
frequencies around the zero frequency is cleared (0: none).
)doc", &kxFrequencyFilterGabor::dcRemovalRadius);
    bindGabor<kxFrequencyFilterGaborReject>(m, "GaborReject", R"doc(
The complement of Gabor: frequencies near the lobe are suppressed (gain 1 - Gabor
gain), all others pass, and a square of 2 dc_radius - 1 frequencies around the
zero frequency keeps its values.
)doc", &kxFrequencyFilterGaborReject::dcProtectionRadius);
    bindRadial<kxFrequencyFilterBandPass>(m, "BandPass", R"doc(
Radial band-pass: gain 1 on a ring of half-width `plateau` around the radial
frequency `frequency` (cycles per pixel), Gaussian flanks of standard deviation
`sigma`; a square of 2 dc_radius - 1 frequencies around the zero frequency is
cleared (0: none).
)doc", &kxFrequencyFilterBandPass::dcRemovalRadius);
    bindRadial<kxFrequencyFilterBandReject>(m, "BandReject", R"doc(
The complement of BandPass: the ring is suppressed, every other frequency is
left as it is, and a square of 2 dc_radius - 1 frequencies around the zero
frequency keeps its values.
)doc", &kxFrequencyFilterBandReject::dcProtectionRadius);

    py::class_<kxFrequencyFilterImage, kxFrequencyFilter, std::shared_ptr<kxFrequencyFilterImage>> image(
        m, "ImageFilter", "A filter whose transfer function is a copy of a spectrum, multiplied element by element.");
    image.def(py::init([](const Spectrum& s) { return std::make_shared<kxFrequencyFilterImage>(s.buffer); }),
              py::arg("spectrum"));
    image.def_property_readonly("size", [](const kxFrequencyFilterImage& f) {
        return py::make_tuple(f.supportWidth(), f.supportHeight());
    }, "(width, height): the padded size of the transfer spectrum.");
    image.def_property_readonly("support_width", &kxFrequencyFilterImage::supportWidth,
                                "Padded width of the transfer spectrum.");
    image.def_property_readonly("support_height", &kxFrequencyFilterImage::supportHeight,
                                "Padded height of the transfer spectrum.");
    image.def("__repr__", [](const kxFrequencyFilterImage& f) {
        return "kxfreq.ImageFilter(" + std::to_string(f.supportWidth()) + " x " + std::to_string(f.supportHeight()) +
               ")";
    });
    addPersistence(image, "ImageFilter");

    m.def("phase_correlate", &phaseCorrelate, py::arg("reference"), py::arg("moving"), py::arg("window") = "hann",
          py::arg("taper") = 0.5, py::arg("remove_mean") = true, R"doc(
The translation between two images of the same size and dtype by phase
correlation: (dx, dy, confidence) with moving(x + dx, y + dy) = reference(x, y),
to a fraction of a pixel; confidence is the height of the normalised
correlation peak, 0 to 1. window: "hann" (default), "tukey" (with taper, the
fraction of each axis inside the two tapers) or "none". Each image's mean is
removed first unless remove_mean is False.
)doc");
    m.def("find_peaks", &findPeaks, py::arg("spectrum"), py::arg("max_peaks") = 8, R"doc(
The periodic components of a spectrum, strongest first, at most max_peaks:
a list of dicts with fx, fy, frequency (cycles per pixel), period (pixels),
angle (radians, 0 to pi, counter-clockwise from +x with y growing downwards),
strength (over the noise floor), sigma ((x, y) peak width, cycles per pixel)
and harmonics (a list of dicts with order, fx, fy and strength).
)doc");
    m.def("remove_texture", &removeTexture, py::arg("image"), py::arg("max_peaks") = 8, R"doc(
The image without its periodic texture: its periodic components (at most
max_peaks, with their harmonics) are found and rejected, both lobes of each,
in one pass. The result has the image's shape and dtype; 8- and 16-bit
results are rounded and clamped.
)doc");
}
