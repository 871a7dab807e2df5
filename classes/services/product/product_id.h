/// The model that this process runs on.
#pragma once

#include <string>

#include "config/base/export.h"
#include "services/product/product_models.h"

/// The model's name and one predicate per model. The answers are determined on the first call and cached for
/// the process; the predicates are of the model that this thread works for. Thread: any.
class VEXA_EXPORT CProductID {
  public:
    /// The environment variable PRODUCT_ID or, when it is not set, the content of /etc/product_id without
    /// trailing blanks and line ends. A file that cannot be read prints one line and gives "".
    static std::string getProductID();

#define MODEL(NAME, ...)                            \
    static bool is##NAME()                          \
    {                                               \
        return CurrentProductModel().name == #NAME; \
    }
#include "services/product/product_models.inc"
#undef MODEL

    /// False in an engineering build (CMake option VEXA_ENGINEERING_BUILD).
    static bool isRelease();
};
