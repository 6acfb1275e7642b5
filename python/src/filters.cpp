// The filter classes: the pass/reject pairs on their shared bodies, the
// image filter, persistence and repr. Filters apply to Spectrum objects; the
// array functions that filter images of any size are in array_filters.cpp.
#include "module.h"

#include <pybind11/stl.h>

#include <utility>

namespace kxpy {
namespace {

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
    if (spectrum.buffer.elements().data)
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

void bindFilters(py::module_& m)
{
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
}

}  // namespace kxpy
