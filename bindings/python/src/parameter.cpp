#include "parameter.h"

#include <config/descriptors/enum_descriptor.h>
#include <config/descriptors/string_descriptor.h>
#include <device/format.h>
#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "values.h"

namespace py = pybind11;

namespace vexa::python {
namespace {

/// A fact that one kind of descriptor has; None of the others.
template <class Descriptor, class Fact>
auto Of(Fact fact)
{
    return [fact](const Parameter& self) -> py::object {
        auto* const descriptor = dynamic_cast<Descriptor*>(self.descriptor);
        if (!descriptor) return py::none();
        return py::cast((descriptor->*fact)());
    };
}

py::object Default(const Parameter& self)
{
    if (auto* const number = dynamic_cast<IntegerDescriptor*>(self.descriptor))
        return ToPython(*number, number->GetFactoryDefault());
    if (auto* const text = dynamic_cast<StringDescriptor*>(self.descriptor))
        return ToPython(*text, text->GetFactoryDefault());
    return py::none();
}

/// Of a number; the limits of one with a sign are those of its 32 bits.
py::object Limit(const Parameter& self, unsigned int (IntegerDescriptor::*limit)(), int64_t withSign)
{
    auto* const number = dynamic_cast<IntegerDescriptor*>(self.descriptor);
    if (!number) return py::none();
    if (number->GetParamType() == eCParam_Signed) return py::int_(withSign);
    return py::int_((number->*limit)());
}

py::dict Choices(const Parameter& self)
{
    py::dict choices;
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(self.descriptor))
        for (const EnumValueDescriptor& entry : enumeration->GetOrderedEnumValueDescriptors())
            choices[py::int_(entry.value)] = entry.name;
    return choices;
}

std::string Description(const Parameter& self)
{
    std::string text;
    self.descriptor->GetAttribute("description", text);
    return text;
}

/// The parameters, by name, that hold one of the values where this one has an effect.
std::vector<std::pair<std::string, unsigned int>> EnabledBy(const Parameter& self)
{
    std::vector<std::pair<std::string, unsigned int>> conditions;
    for (const auto& [id, value] : self.descriptor->GetRelation("enabled_by"))
        if (ParamDescriptor* const other = self.catalogue->Find(id))
            conditions.emplace_back(Catalogue::NameOf(*other), value);
    return conditions;
}

/// Throws ValueError.
Value Meant(const Parameter& self, const py::handle& value)
{
    std::string reason;
    auto meant = FromPython(*self.descriptor, value, reason);
    if (!meant) throw py::value_error(Catalogue::NameOf(*self.descriptor) + ": " + reason);
    return *std::move(meant);
}

py::object Parsed(const Parameter& self, const py::handle& value)
{
    return ToPython(*self.descriptor, Meant(self, value));
}

py::object Shown(const Parameter& self, const py::handle& value)
{
    return DecodedText(Format(*self.descriptor, Meant(self, value)));
}

std::optional<std::string> ObjectionTo(const Parameter& self, const py::handle& value)
{
    std::string reason;
    const auto meant = FromPython(*self.descriptor, value, reason);
    return meant ? Objection(*self.descriptor, *meant) : reason;
}

}  // namespace

void DefineParameter(py::module_& module)
{
    const auto getter = [](auto fact) {
        return [fact](const Parameter& self) { return (self.descriptor->*fact)(); };
    };
    py::class_<Parameter>(module, "Parameter", "What a parameter is, on the model of a device.")
        .def_property_readonly("name",
                               [](const Parameter& self) { return Catalogue::NameOf(*self.descriptor); })
        .def_property_readonly("id",
                               [](const Parameter& self) { return uint32_t{self.descriptor->GetParamID()}; })
        .def_property_readonly(
            "kind", [](const Parameter& self) { return KindOf(*self.descriptor); },
            "\"int\", \"enum\", \"str\", \"data\" or \"alarm\".")
        .def_property_readonly("title", getter(&ParamDescriptor::GetName), "As displays name it.")
        .def_property_readonly("short_title",
                               [](const Parameter& self) { return self.descriptor->GetShortName(); })
        .def_property_readonly("description", &Description)
        .def_property_readonly("default", &Default, "The factory's.")
        .def_property_readonly("choices", &Choices,
                               "The names of the values of an enumeration, in menu order.")
        .def_property_readonly(
            "minimum",
            [](const Parameter& self) { return Limit(self, &IntegerDescriptor::GetMinValue, INT32_MIN); },
            "None for a text.")
        .def_property_readonly(
            "maximum",
            [](const Parameter& self) { return Limit(self, &IntegerDescriptor::GetMaxValue, INT32_MAX); },
            "None for a text.")
        .def_property_readonly("units", Of<IntegerDescriptor>(&IntegerDescriptor::GetUnits),
                               "None for a text.")
        .def_property_readonly("scale", Of<IntegerDescriptor>(&IntegerDescriptor::GetScaleBy),
                               "The value is shown divided by this; None for a text.")
        .def_property_readonly("minimum_length", Of<StringDescriptor>(&StringDescriptor::GetMinLength),
                               "In bytes; None for a number.")
        .def_property_readonly("maximum_length", Of<StringDescriptor>(&StringDescriptor::GetMaxLength),
                               "In bytes; None for a number.")
        .def_property_readonly("class_names", getter(&ParamDescriptor::GetClassNames),
                               "Words about it: \"readonly\", \"volatile\", \"password\".")
        .def_property_readonly(
            "is_persistent",
            [](const Parameter& self) { return self.descriptor->GetPersistenceType() == ePersist; },
            "Whether the device keeps the value across restarts.")
        .def_property_readonly(
            "is_setting", [](const Parameter& self) { return IsSetting(*self.descriptor); },
            "Whether the device keeps it and users set it: no command, no status value, no alarm.")
        .def("parse", &Parsed, py::arg("value"),
             "What the device would hold for a value as people write it. Raises ValueError for what is none.")
        .def("format", &Shown, py::arg("value"), "A value as people read it: \"70 %\". Raises as parse.")
        .def("objection", &ObjectionTo, py::arg("value"),
             "Why a device would not store the value as it is; None when it should.")
        .def_property_readonly("enabled_by", &EnabledBy,
                               "Values of other parameters, any of which lets this one have an effect.")
        .def("__repr__", [](const Parameter& self) {
            return "<vexa.Parameter " + Catalogue::NameOf(*self.descriptor) + ">";
        });
}

}  // namespace vexa::python
