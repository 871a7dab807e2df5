/// What a parameter is, for Python.
#pragma once

#include <device/catalogue.h>
#include <pybind11/pybind11.h>

#include <memory>

namespace vexa::python {

struct Parameter {
    std::shared_ptr<const Catalogue> catalogue;  ///< owns the descriptor
    ParamDescriptor* descriptor;
};

void DefineParameter(pybind11::module_& module);

}  // namespace vexa::python
