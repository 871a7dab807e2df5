#include "values.h"

#include <device/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <cmath>

namespace py = pybind11;

namespace vexa::python {

py::object DecodedText(const std::string& text)
{
    PyObject* const decoded =
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
    if (!decoded) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(decoded);
}

py::object ToPython(ParamDescriptor& descriptor, const Value& value)
{
    if (const auto* const number = std::get_if<unsigned int>(&value)) {
        const bool isSigned = descriptor.GetParamType() == eCParam_Signed;
        return isSigned ? py::int_(static_cast<int>(*number)) : py::int_(*number);
    }
    const std::string& text = std::get<std::string>(value);
    if (HoldsBytes(descriptor)) return py::bytes(text);
    return DecodedText(text);
}

namespace {

std::string TextOf(const py::handle& value)
{
    PyObject* const encoded = PyUnicode_AsEncodedString(value.ptr(), "utf-8", "surrogateescape");
    if (!encoded) throw py::error_already_set();
    return py::reinterpret_steal<py::bytes>(encoded);
}

}  // namespace

std::optional<Value> FromPython(ParamDescriptor& descriptor, const py::handle& value, std::string& reason)
{
    if (py::isinstance<py::bytes>(value)) {
        if (HoldsText(descriptor)) return py::cast<std::string>(value);
        throw py::type_error("bytes are for data, alarms and texts alone");
    }
    if (py::isinstance<py::str>(value)) return Parse(descriptor, TextOf(value), reason);
    if (!PyLong_Check(value.ptr()) && !PyFloat_Check(value.ptr()))
        throw py::type_error("a value is a number, a text, or bytes");
    if (HoldsText(descriptor)) {
        reason = "it takes a text";
        return std::nullopt;
    }
    const auto number = py::reinterpret_borrow<py::object>(value);
    const double real = PyFloat_Check(value.ptr()) ? PyFloat_AS_DOUBLE(value.ptr()) : 0;
    std::optional<Value> meant;
    if (!PyBool_Check(value.ptr())) meant = Parse(descriptor, py::str(number), reason);
    // True and False are numbers, too, and 70.0 is 70.
    if (!meant && std::isfinite(real) && std::trunc(real) == real)
        meant = Parse(descriptor, py::str(py::int_(number)), reason);
    return meant;
}

bool MatchesAny(const std::string& name, const std::vector<std::string>& patterns)
{
    return patterns.empty() || std::ranges::any_of(patterns, [&](const std::string& pattern) {
               return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
           });
}

}  // namespace vexa::python
