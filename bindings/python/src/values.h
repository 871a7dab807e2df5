/// Values between Python and the library: numbers are int, texts str, data and alarms bytes.
#pragma once

#include <device/catalogue.h>
#include <device/value.h>
#include <pybind11/pybind11.h>

#include <optional>
#include <string>
#include <vector>

namespace vexa::python {

/// A device may hold what is no UTF-8: it comes through as file names of the system do, and can be set again.
pybind11::object DecodedText(const std::string& text);
pybind11::object ToPython(ParamDescriptor& descriptor, const Value& value);

/// A number as it is stored, or what people write: "70 %", "ProRes 422", 12.5.
/// @param reason  why it is no value of the parameter. @return nothing then.
std::optional<Value> FromPython(ParamDescriptor& descriptor, const pybind11::handle& value,
                                std::string& reason);

/// As of files: "Clip*". No pattern: any name.
bool MatchesAny(const std::string& name, const std::vector<std::string>& patterns);

}  // namespace vexa::python
