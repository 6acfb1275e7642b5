// Images of any size: the filter descriptions, tiled filtering of arrays
// (2-D, or with channels), the Welch spectrum, and peaks and texture
// removal on it. The Python functions of kxfreq (band_reject, ...) and
// kxfreq.dask are written on these private bindings.
#include "module.h"

#include <kx/tiling.h>

#include <pybind11/stl.h>

#include <cmath>
#include <utility>
#include <vector>

namespace kxpy {
namespace {

using Description = kxFilterDescription;

kxTileOptions::Output outputNamed(const std::string& name)
{
    if (name == "real")
        return kxTileOptions::eReal;
    if (name == "signed")
        return kxTileOptions::eSigned;
    if (name == "magnitude")
        return kxTileOptions::eMagnitude;
    refuseArgument("output must be \"real\", \"signed\" or \"magnitude\", not \"" + name + "\"");
}

kxSampleType sampleOf(PixelType t)
{
    switch (t) {
    case PixelType::u8: return eSampleU8;
    case PixelType::u16: return eSampleU16;
    case PixelType::f32: return eSampleF32;
    case PixelType::f64: break;
    }
    return eSampleF64;
}

// The sample type of a result: the input's own when the library takes it,
// float64 (cast back afterwards) for the dtypes converted on the way in, or
// the unrounded float32/float64 the caller asks for.
PixelType resultType(const ImageArray& in, const py::object& dtype)
{
    if (dtype.is_none())
        return in.original.equal(in.array.dtype()) ? in.type : PixelType::f64;
    const py::dtype d = py::dtype::from_args(dtype);
    if (d.equal(py::dtype::of<float>()))
        return PixelType::f32;
    if (d.equal(py::dtype::of<double>()))
        return PixelType::f64;
    throw py::type_error("dtype must be float32 or float64 (an unrounded result) or None (the image's dtype), "
                         "not " + dtypeText(d));
}

unsigned jobsOf(long jobs)
{
    if (jobs < 1)
        refuseArgument("jobs must be at least 1, not " + std::to_string(jobs));
    return static_cast<unsigned>(jobs);
}

kxTileOptions tileOptions(long tile, const py::object& margin, long jobs, const std::string& output)
{
    kxTileOptions o;
    o.tile = tile;
    if (!margin.is_none()) {
        o.margin = margin.cast<long>();
        if (o.margin < 0)
            refuseArgument("margin must be 0 or more (None: the filter's own), not " +
                                  std::to_string(o.margin));
    }
    o.jobs = jobsOf(jobs);
    o.output = outputNamed(output);
    return o;
}

// The image's axes: rows, columns and (for a 3-D array) channels.
struct Axes {
    int rows = 0, columns = 1, channels = -1;
    long channelCount = 1;
};

Axes axesOf(const py::array& a, long channelAxis)
{
    Axes x;
    if (a.ndim() == 2)
        return x;
    const long axis = channelAxis < 0 ? channelAxis + 3 : channelAxis;
    if (axis < 0 || axis > 2)
        refuseArgument("channel_axis must be -3 to 2 for a 3-D image, not " + std::to_string(channelAxis));
    x.channels = static_cast<int>(axis);
    x.rows = axis == 0 ? 1 : 0;
    x.columns = axis == 2 ? 1 : 2;
    x.channelCount = static_cast<long>(a.shape(x.channels));
    return x;
}

// One channel of an array as an image view (strides in bytes, any order).
template <typename T, typename Array>
kxImageView<T> channelView(Array& a, const Axes& x, long channel)
{
    char* base = static_cast<char*>(const_cast<void*>(a.data()));
    if (x.channels >= 0)
        base += channel * a.strides(x.channels);
    kxImageView<T> v;
    v.data = reinterpret_cast<T*>(base);
    v.width = static_cast<long>(a.shape(x.columns));
    v.height = static_cast<long>(a.shape(x.rows));
    v.rowStride = a.strides(x.rows);
    v.pixelStride = a.strides(x.columns);
    return v;
}

// The channel left as it is: with `alpha` None, the last of two or four
// (grey or colour with an alpha channel, kept as the tool keeps a file's
// alpha); True: the last of two or more; False: none. -1 for none.
long alphaChannel(const Axes& axes, const py::object& alpha)
{
    const bool keep = alpha.is_none() ? axes.channelCount == 2 || axes.channelCount == 4 : alpha.cast<bool>();
    if (keep && axes.channelCount < 2)
        refuseArgument("alpha=True needs an image with two or more channels, not " +
                       std::to_string(axes.channelCount));
    return keep ? axes.channelCount - 1 : -1;
}

// The alpha channel, copied into the result's type (it is the image's own,
// or a floating-point type that holds it exactly).
template <typename In, typename Out>
void copyChannel(const kxImageView<const In>& from, const kxImageView<Out>& to)
{
    for (long y = 0; y < from.height; ++y)
        for (long x = 0; x < from.width; ++x)
            to(x, y) = static_cast<Out>(from(x, y));
}

py::dtype dtypeOf(PixelType t)
{
    return withSampleType(t, [](auto sample) { return py::dtype::of<decltype(sample)>(); });
}

// Filters every channel of `image` but its alpha channel with `description`
// into a new array of the image's shape; the GIL is released while the
// tiles are computed.
py::array filterArray(const Description& description, const py::object& image, long tile, const py::object& margin,
                      long jobs, const std::string& output, const py::object& dtype, long channelAxis,
                      const py::object& alpha)
{
    const ImageArray in = imageArray(image, "image", eChannels | eFloat32);
    const PixelType outType = resultType(in, dtype);
    const kxTileOptions options = tileOptions(tile, margin, jobs, output);
    const Axes axes = axesOf(in.array, channelAxis);
    const long alphaAt = alphaChannel(axes, alpha);
    std::vector<py::ssize_t> shape(in.array.shape(), in.array.shape() + in.array.ndim());
    py::array result(dtypeOf(outType), shape);
    withSampleType(in.type, [&](auto inSample) {
        using In = decltype(inSample);
        return withSampleType(outType, [&](auto outSample) {
            using Out = decltype(outSample);
            std::vector<kxImageView<const In>> from;
            std::vector<kxImageView<Out>> to;
            for (long c = 0; c < axes.channelCount; ++c) {
                from.push_back(channelView<const In>(in.array, axes, c));
                to.push_back(channelView<Out>(result, axes, c));
            }
            py::gil_scoped_release release;
            for (std::size_t c = 0; c < from.size(); ++c) {
                if (static_cast<long>(c) == alphaAt)
                    copyChannel(from[c], to[c]);
                else
                    kfFilterTiled(from[c], description, to[c], options);
            }
            return 0;
        });
    });
    if (dtype.is_none())
        return castLike(result, in.original);
    return result;
}

// The margin filterArray uses for an image of dtype `imageDtype` and its
// `dtype` argument (the result's full scale sets the default), after the
// checks that it fits the tile.
long marginFor(const Description& description, const py::object& imageDtype, const py::object& dtype, long tile,
               const py::object& margin)
{
    const py::object pixel = py::module_::import("numpy").attr("zeros")(py::make_tuple(1, 1), imageDtype);
    const PixelType outType = resultType(imageArray(pixel, "image", eFloat32), dtype);
    return kfTileMargin(description, sampleOf(outType), tileOptions(tile, margin, 1, "real"));
}

kxWelchOptions welchOptions(long segment, double overlap, const std::string& window, double taper, long jobs)
{
    kxWelchOptions o;
    o.segment = segment;
    o.overlap = overlap;
    o.window = windowNamed(window, taper);
    o.jobs = jobsOf(jobs);
    return o;
}

std::unique_ptr<Spectrum> welchSpectrum(const py::object& image, long segment, double overlap,
                                        const std::string& window, double taper, long jobs)
{
    const ImageArray in = imageArray(image, "image", eFloat32);
    const kxWelchOptions o = welchOptions(segment, overlap, window, taper, jobs);
    auto s = std::make_unique<Spectrum>();
    s->buffer = withSampleType(in.type, [&](auto sample) {
        using T = decltype(sample);
        const kxImageView<const T> view = channelView<const T>(in.array, Axes(), 0);
        py::gil_scoped_release release;
        return kfWelchSpectrum(view, o);
    });
    return s;
}

// A component from the dict find_peaks gives (the fields a reject filter
// reads; the others follow from them).
kxPeriodicComponent componentOf(const py::handle& object)
{
    const py::dict d = py::reinterpret_borrow<py::dict>(object);
    kxPeriodicComponent c;
    c.fx = d["fx"].cast<double>();
    c.fy = d["fy"].cast<double>();
    c.frequency = d.contains("frequency") ? d["frequency"].cast<double>() : std::hypot(c.fx, c.fy);
    c.period = c.frequency > 0 ? 1.0 / c.frequency : 0.0;
    c.angle = d.contains("angle") ? d["angle"].cast<double>() : std::atan2(c.fy, c.fx);
    c.strength = d.contains("strength") ? d["strength"].cast<double>() : 0.0;
    const std::pair<double, double> sigma = d["sigma"].cast<std::pair<double, double>>();
    c.sigma = kxPair<double>(sigma.first, sigma.second);
    if (d.contains("harmonics"))
        for (const py::handle h : d["harmonics"]) {
            const py::dict hd = py::reinterpret_borrow<py::dict>(h);
            kxPeriodicHarmonic harmonic;
            harmonic.order = hd["order"].cast<long>();
            harmonic.fx = hd["fx"].cast<double>();
            harmonic.fy = hd["fy"].cast<double>();
            harmonic.strength = hd.contains("strength") ? hd["strength"].cast<double>() : 0.0;
            c.harmonics.push_back(harmonic);
        }
    return c;
}

template <typename D>
using DescriptionClass = py::class_<D, Description, std::shared_ptr<D>>;

// The pass/reject pairs share their parameters: one binding for each pair.
template <typename D>
void bindGaborDescription(py::module_& m, const char* name)
{
    DescriptionClass<D>(m, name).def(
        py::init([](std::pair<double, double> sigma, std::pair<double, double> plateau, double angle,
                    double frequency, long dcRadius) {
            auto d = std::make_shared<D>();
            d->sigma = kxPair<double>(sigma.first, sigma.second);
            d->plateau = kxPair<double>(plateau.first, plateau.second);
            d->angle = angle;
            d->frequency = frequency;
            d->dcRadius = dcRadius;
            return d;
        }),
        py::arg("sigma"), py::arg("plateau"), py::arg("angle"), py::arg("frequency"), py::arg("dc_radius"));
}

template <typename D>
void bindRadialDescription(py::module_& m, const char* name)
{
    DescriptionClass<D>(m, name).def(py::init([](double sigma, double plateau, double frequency, long dcRadius) {
                                         auto d = std::make_shared<D>();
                                         d->sigma = sigma;
                                         d->plateau = plateau;
                                         d->frequency = frequency;
                                         d->dcRadius = dcRadius;
                                         return d;
                                     }),
                                     py::arg("sigma"), py::arg("plateau"), py::arg("frequency"),
                                     py::arg("dc_radius"));
}

}  // namespace

// Shared with analysis.cpp: components found on the Welch spectrum of an
// image of any size.
std::vector<kxPeriodicComponent> findPeaksOfImage(const py::object& image, const kxPeriodicSearchOptions& search)
{
    const ImageArray in = imageArray(image, "image", eFloat32);
    const kxWelchOptions welch;
    return withSampleType(in.type, [&](auto sample) {
        using T = decltype(sample);
        const kxImageView<const T> view = channelView<const T>(in.array, Axes(), 0);
        py::gil_scoped_release release;
        return kfFindPeriodicComponentsTiled(view, search, welch);
    });
}

py::array removeTextureTiled(const py::object& image, const kxTextureRemovalOptions& removal, long tile,
                             const py::object& margin, long jobs)
{
    const ImageArray in = imageArray(image, "image", eFloat32);
    const kxTileOptions tiling = tileOptions(tile, margin, jobs, "real");
    const kxWelchOptions welch;
    std::vector<py::ssize_t> shape(in.array.shape(), in.array.shape() + 2);
    py::array result(in.array.dtype(), shape);
    withSampleType(in.type, [&](auto sample) {
        using T = decltype(sample);
        const kxImageView<const T> from = channelView<const T>(in.array, Axes(), 0);
        const kxImageView<T> to = channelView<T>(result, Axes(), 0);
        py::gil_scoped_release release;
        kfRemovePeriodicTextureTiled(from, to, removal, tiling, welch);
        return 0;
    });
    return castLike(result, in.original);
}

kxPhaseCorrelation phaseCorrelateLarge(const ImageArray& reference, const ImageArray& moving,
                                       const kxPhaseCorrelationOptions& correlation)
{
    kxLargeRegistrationOptions o;
    o.correlation = correlation;
    return withPixelType(reference.type, [&](auto pixel) {
        using T = decltype(pixel);
        const kxImageView<const T> a = channelView<const T>(reference.array, Axes(), 0);
        const kxImageView<const T> b = channelView<const T>(moving.array, Axes(), 0);
        py::gil_scoped_release release;
        return kfPhaseCorrelateLarge(a, b, o);
    });
}

void bindTiled(py::module_& m)
{
    py::class_<Description, std::shared_ptr<Description>> base(
        m, "_FilterDescription", "A filter without a size, for images of any size (tiled).");
    base.def("filter", &filterArray, py::arg("image"), py::arg("tile"), py::arg("margin"), py::arg("jobs"),
             py::arg("output"), py::arg("dtype"), py::arg("channel_axis"),
             py::arg("alpha"), "The filtered image, of the image's shape.");
    base.def("margin", &marginFor, py::arg("image_dtype"), py::arg("dtype"), py::arg("tile"), py::arg("margin"),
             "The overlap margin filter() uses for an image of dtype image_dtype and its dtype argument.");
    base.def_property_readonly("kernel_width", &Description::kernelWidth,
                               "Standard deviation of the kernel's widest envelope, pixels.");

    bindGaborDescription<kxGaborDescription>(m, "_GaborDescription");
    bindGaborDescription<kxGaborRejectDescription>(m, "_GaborRejectDescription");
    bindRadialDescription<kxBandPassDescription>(m, "_BandPassDescription");
    bindRadialDescription<kxBandRejectDescription>(m, "_BandRejectDescription");
    DescriptionClass<kxPeriodicRejectDescription>(m, "_PeriodicRejectDescription")
        .def(py::init([](const py::list& components, double widthScale, double minSigma) {
            auto d = std::make_shared<kxPeriodicRejectDescription>();
            for (const py::handle c : components)
                d->components.push_back(componentOf(c));
            d->widthScale = widthScale;
            d->minSigma = minSigma;
            return d;
        }), py::arg("components"), py::arg("width_scale"), py::arg("min_sigma"));

    m.def(
        "_image_axes",
        [](const py::object& image, long channelAxis, const py::object& alpha) {
            const Axes axes = axesOf(imageArray(image, "image", eChannels).array, channelAxis);
            return py::make_tuple(axes.rows, axes.columns, alphaChannel(axes, alpha) >= 0);
        },
        py::arg("image"), py::arg("channel_axis"), py::arg("alpha"),
        "The (row, column) axes of an image and whether its last channel is kept as alpha, after the checks of "
        "its dimensions, channel axis and alpha.");
    m.def("_welch_spectrum", &welchSpectrum, py::arg("image"), py::arg("segment"), py::arg("overlap"),
          py::arg("window"), py::arg("taper"), py::arg("jobs"));
}

}  // namespace kxpy
