// Analysis: registration by phase correlation, periodic components and
// texture removal.
#include "module.h"

#include <kx/tiling.h>

#include <pybind11/stl.h>

#include <vector>

namespace kxpy {

kxWindow windowNamed(const std::string& name, double taper)
{
    if (name == "hann")
        return kxWindow::hann();
    if (name == "tukey")
        return kxWindow::tukey(taper);
    if (name == "none")
        return kxWindow::none();
    refuseArgument("window must be \"hann\", \"tukey\" or \"none\", not \"" + name + "\"");
}

namespace {

py::tuple tupleOf(const kxPair<double>& p) { return py::make_tuple(p.x(), p.y()); }

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
    const ImageArray ref = imageArray(reference, "reference");
    const ImageArray mov = imageArray(moving, "moving");
    if (mov.type != ref.type)
        throw py::type_error(std::string("reference and moving must have the same dtype, not ") +
                             dtypeText(ref.original) + " and " +
                             dtypeText(mov.original));
    kxPhaseCorrelationOptions o;
    o.window = windowNamed(window, taper);
    o.removeMean = removeMean;
    const bool large = ref.array.shape(0) > kfMaxTransformSide || ref.array.shape(1) > kfMaxTransformSide;
    const kxPhaseCorrelation r =
        large ? phaseCorrelateLarge(ref, mov, o)
              : withPixelType(ref.type, [&](auto pixel) { return correlate<decltype(pixel)>(ref.array, mov.array, o); });
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

// A Spectrum is searched as it is; an image of any size on its Welch
// spectrum.
py::list findPeaks(const py::object& source, long maxPeaks)
{
    kxPeriodicSearchOptions o;
    o.maxComponents = maxPeaks;
    std::vector<kxPeriodicComponent> found;
    if (py::isinstance<Spectrum>(source)) {
        const Spectrum& s = source.cast<const Spectrum&>();
        py::gil_scoped_release release;
        found = kfFindPeriodicComponents(s.buffer, o);
    } else {
        found = findPeaksOfImage(source, o);
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

// An image that fits in one transform is handled as one, as it always was;
// a larger one on its Welch spectrum and tile by tile. The result keeps the
// image's dtype: 8- and 16-bit results rounded and clamped by the library,
// other dtypes through castLike.
py::array removeTexture(const py::object& image, long maxPeaks, long tile, const py::object& margin, long jobs)
{
    const ImageArray a = imageArray(image, "image");
    kxTextureRemovalOptions o;
    o.search.maxComponents = maxPeaks;
    if (a.array.shape(0) > kfMaxTransformSide || a.array.shape(1) > kfMaxTransformSide)
        return removeTextureTiled(image, o, tile, margin, jobs);
    const py::array result = withPixelType(
        a.type, [&](auto pixel) -> py::array { return removeTextureT<decltype(pixel)>(a.array, o); });
    return castLike(result, a.original);
}

}  // namespace

void bindAnalysis(py::module_& m)
{
    m.def("phase_correlate", &phaseCorrelate, py::arg("reference"), py::arg("moving"), py::arg("window") = "hann",
          py::arg("taper") = 0.5, py::arg("remove_mean") = true, R"doc(
The translation between two images of the same size and dtype by phase
correlation: (dx, dy, confidence) with moving(x + dx, y + dy) = reference(x, y),
to a fraction of a pixel; confidence is the height of the normalised
correlation peak, 0 to 1. Images larger than 2048 in a side are registered
coarsely on reduced copies, then refined on full-resolution windows. window: "hann" (default), "tukey" (with taper, the
fraction of each axis inside the two tapers) or "none". Each image's mean is
removed first unless remove_mean is False.
)doc");
    m.def("find_peaks", &findPeaks, py::arg("spectrum"), py::arg("max_peaks") = 8, R"doc(
The periodic components of a spectrum, or of an image of any size (searched
on its Welch spectrum), strongest first, at most max_peaks:
a list of dicts with fx, fy, frequency (cycles per pixel), period (pixels),
angle (radians, 0 to pi, counter-clockwise from +x with y growing downwards),
strength (over the noise floor), sigma ((x, y) peak width, cycles per pixel)
and harmonics (a list of dicts with order, fx, fy and strength).
)doc");
    m.def("remove_texture", &removeTexture, py::arg("image"), py::arg("max_peaks") = 8, py::kw_only(),
          py::arg("tile") = kfMaxTileSide, py::arg("margin") = py::none(), py::arg("jobs") = 1, R"doc(
The image without its periodic texture: its periodic components (at most
max_peaks, with their harmonics) are found and rejected, both lobes of each,
in one pass. The result has the image's shape and dtype; 8- and 16-bit
results are rounded and clamped. An image of at most 2048 x 2048 is searched
and filtered as one transform; a larger one is searched on its Welch spectrum
and filtered in tiles of tile x tile (margin and jobs as in band_reject).
)doc");
}

}  // namespace kxpy
