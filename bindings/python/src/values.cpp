#include "values.h"

#include <device/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <climits>
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

/// Of whatever Python takes for a whole number: True and False are 1 and 0. What has no place in 64 bits has the nearest
/// that has: it is refused all the same.
std::string WholeText(const py::handle& value)
{
    const auto number = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
    if (!number) throw py::error_already_set();
    int overflow = 0;
    const long long whole = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
    if (overflow != 0) return std::to_string(overflow > 0 ? LLONG_MAX : LLONG_MIN);
    return std::to_string(whole);
}

/// 12.0 is as shown where numbers are shown with a point, and elsewhere 70.0 is 70.
std::optional<Value> FromReal(ParamDescriptor& descriptor, double real, std::string& reason)
{
    constexpr double kMost = 1e15;
    auto meant = Parse(descriptor, py::str(py::float_(real)), reason);
    if (!meant && std::trunc(real) == real && std::abs(real) < kMost)
        meant = Parse(descriptor, std::to_string(static_cast<long long>(real)), reason);
    return meant;
}

}  // namespace

std::optional<Value> FromPython(ParamDescriptor& descriptor, const py::handle& value, std::string& reason)
{
    if (py::isinstance<py::bytes>(value)) {
        if (HoldsText(descriptor)) return py::cast<std::string>(value);
        throw py::type_error("bytes are for data, alarms and texts alone");
    }
    if (py::isinstance<py::str>(value)) return Parse(descriptor, TextOf(value), reason);
    if (!PyIndex_Check(value.ptr()) && !PyFloat_Check(value.ptr()))
        throw py::type_error("a value is a number, a text, or bytes");
    if (HoldsText(descriptor)) {
        reason = "it takes a text";
        return std::nullopt;
    }
    if (PyFloat_Check(value.ptr())) return FromReal(descriptor, PyFloat_AS_DOUBLE(value.ptr()), reason);
    return Parse(descriptor, WholeText(value), reason);
}

bool MatchesAny(const std::string& name, const std::vector<std::string>& patterns)
{
    return patterns.empty() || std::ranges::any_of(patterns, [&](const std::string& pattern) {
               return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
           });
}

}  // namespace vexa::python
