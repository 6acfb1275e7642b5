// The module's exception classes: kxfreq.Error and one subclass per library
// error class, each instance carrying the library's message and error number.
#include "module.h"

namespace kxpy {
namespace {

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

}  // namespace

void refuseArgument(const std::string& message)
{
    throw kxFrequencyDefs::InvalidArgument(message.c_str());
}

void refuseSize(const std::string& message)
{
    throw kxFrequencyDefs::InvalidSize(message.c_str());
}

void bindErrors(py::module_& m)
{
    ErrorClasses& c = errorClasses();
    c.base = makeErrorClass(m, "Error", PyExc_Exception,
                            "Base of the library's errors; str() is the library's message and error_number "
                            "its error number.");
    // The refusals of a value (a parameter, a size, an empty image) are also
    // ValueErrors, as Python code expects of them.
    struct Named {
        const char* name;
        const char* doc;
        bool valueError;
    };
    const Named named[6] = {
        {"InvalidArgumentError", "A parameter out of its range (also a ValueError).", true},
        {"UninitializedError", "A spectrum without data, or a filter without a transfer function.", false},
        {"InvalidSizeError", "Sizes or dimensions that do not match or are out of range (also a ValueError).", true},
        {"UnboundWindowError", "An image without pixels (also a ValueError).", true},
        {"InvalidBufferError", "A spectrum whose store holds the result of an in-place inverse.", false},
        {"BadCoordError", "Element coordinates outside the grid.", false},
    };
    for (int i = 0; i < 6; ++i) {
        const py::object bases =
            named[i].valueError ? py::object(py::make_tuple(c.base, py::handle(PyExc_ValueError))) : c.base;
        c.byNumber[i] = makeErrorClass(m, named[i].name, bases, named[i].doc);
    }
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

}  // namespace kxpy
