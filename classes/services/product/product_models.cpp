#include "services/product/product_models.h"

#include <algorithm>

#include "services/product/product_id.h"

namespace {

constexpr ProductModel kModels[] = {
#define MODEL(NAME, ...) {.name = #NAME, __VA_ARGS__},
#include "services/product/product_models.inc"
#undef MODEL
};

}  // namespace

std::span<const ProductModel> ProductModels()
{
    return kModels;
}

const ProductModel* FindProductModel(std::string_view name)
{
    const auto* row = std::ranges::find(kModels, name, &ProductModel::name);
    return row == std::end(kModels) ? nullptr : row;
}

const ProductModel& CurrentProductModel()
{
    static const ProductModel unknown;
    static const ProductModel* const row = FindProductModel(CProductID::getProductID());
    return row ? *row : unknown;
}
