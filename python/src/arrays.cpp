// Arrays in: what numpy hands the module, checked and converted exactly to
// one of the library's pixel types. Arrays out: results back in the
// caller's dtype.
#include "module.h"


namespace kxpy {
namespace {

py::module_ numpy() { return py::module_::import("numpy"); }

// The pixel type of a dtype the library takes as it is, by kind and size
// (not by object identity: equal dtypes need not be the same object).
bool nativePixelType(const py::dtype& d, PixelType& type)
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

// Whether every value of a 64-bit integer array is within 2^53 (compared as
// integers: a double would round 2^53 + 1 down to 2^53).
bool withinExactLimit(const py::array& a)
{
    constexpr long long limit = 1LL << 53;
    py::module_ np = numpy();
    if (a.dtype().kind() == 'u')
        return np.attr("max")(a).cast<unsigned long long>() <= static_cast<unsigned long long>(limit);
    return np.attr("max")(a).cast<long long>() <= limit && np.attr("min")(a).cast<long long>() >= -limit;
}

}  // namespace

std::string dtypeText(const py::dtype& d)
{
    return py::str(static_cast<const py::handle&>(d)).cast<std::string>();
}

PixelType pixelTypeNamed(const py::object& dtype)
{
    py::dtype d = py::dtype::from_args(dtype);
    PixelType type;
    if (!nativePixelType(d, type))
        throw py::type_error("dtype must be uint8, uint16 or float64, not " + dtypeText(d));
    return type;
}

std::string shapeText(const py::array& a)
{
    return py::repr(a.attr("shape")).cast<std::string>();
}

// uint8, uint16 and float64 pass as they are (any byte order, any strides);
// bool becomes uint8 0 and 1; every other real type whose values float64
// holds exactly becomes float64 (float16, float32 unless the caller takes
// it, 8-, 16- and 32-bit integers, and 64-bit integers whose values are
// within 2^53). Anything else is refused with the dtype or shape it had.
ImageArray imageArray(const py::object& object, const char* what, unsigned accepts)
{
    py::array a;
    if (py::isinstance<py::array>(object)) {
        a = py::reinterpret_borrow<py::array>(object);
    } else {
        try {
            a = numpy().attr("asarray")(object);
        } catch (py::error_already_set& e) {
            throw py::type_error(std::string(what) + " must be an array numpy.asarray accepts; a " +
                                 py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>() +
                                 " was refused: " + py::str(e.value()).cast<std::string>());
        }
    }
    const std::string name(what);
    const bool channels = (accepts & eChannels) != 0;
    if (a.ndim() != 2 && !(channels && a.ndim() == 3))
        refuseSize(name + (channels ? " must be 2-D (height, width) or 3-D (height, width, channels)"
                                               : " must be 2-D (height, width)") +
                              ", not " + std::to_string(a.ndim()) + "-D with shape " + shapeText(a));
    if (a.size() == 0)
        throw kxFrequencyDefs::UnboundWindow((name + " has no pixels (shape " + shapeText(a) + ")").c_str());

    ImageArray image{a, PixelType::f64, a.dtype()};
    const py::dtype d = a.dtype();
    if (nativePixelType(d, image.type))
        return image;
    const char kind = d.kind();
    const long size = static_cast<long>(d.itemsize());
    if ((accepts & eFloat32) && kind == 'f' && size == 4) {
        if (!d.attr("isnative").cast<bool>())
            image.array = a.attr("astype")(py::dtype::of<float>());
        image.type = PixelType::f32;
        return image;
    }
    if (kind == 'b') {
        image.array = a.attr("astype")(py::dtype::of<std::uint8_t>());
        image.type = PixelType::u8;
        return image;
    }
    if (kind == 'u' && size == 2) {   // byte-swapped uint16
        image.array = a.attr("astype")(py::dtype::of<std::uint16_t>());
        image.type = PixelType::u16;
        return image;
    }
    const bool exactFloat = kind == 'f' && size <= 8;
    const bool exactInteger = (kind == 'i' || kind == 'u') && size <= 4;
    const bool wideInteger = (kind == 'i' || kind == 'u') && size == 8;
    if (wideInteger && !withinExactLimit(a))
        refuseArgument(name + " of dtype " + dtypeText(d) +
                              " holds values beyond 2**53, which float64 cannot hold exactly; convert it yourself");
    if (!(exactFloat || exactInteger || wideInteger))
        throw py::type_error(name + " must have a real dtype (uint8, uint16 or float64, or one converted exactly to "
                             "them: bool, float16, float32, integers), not " + dtypeText(d));
    image.array = a.attr("astype")(py::dtype::of<double>());
    return image;
}

py::array castLike(const py::array& result, const py::dtype& dtype)
{
    if (result.dtype().equal(dtype))
        return result;
    py::module_ np = numpy();
    const char kind = dtype.kind();
    if (kind == 'f')
        return result.attr("astype")(dtype);
    if (kind == 'b')
        return np.attr("greater_equal")(result, 0.5);
    py::object info = np.attr("iinfo")(dtype);
    // Half away from zero, as the library rounds its integer results.
    py::object halfUp = np.attr("floor")(np.attr("add")(np.attr("abs")(result), 0.5));
    py::object rounded = np.attr("copysign")(halfUp, result);
    py::object clipped = np.attr("clip")(rounded, info.attr("min"), info.attr("max"));
    return clipped.attr("astype")(dtype);
}

}  // namespace kxpy
