#include "services/product/product_models.h"

#include <algorithm>
#include <utility>

#include "services/product/product_id.h"

namespace {

constexpr ProductModel kModels[] = {
#define MODEL(NAME, ...) {.name = #NAME, __VA_ARGS__},
#include "services/product/product_models.inc"
#undef MODEL
};

constexpr bool AreNumbersDistinct()
{
    for (const ProductModel& a : kModels)
        for (const ProductModel& b : kModels)
            if (a.number == 0 || (&a != &b && a.number == b.number)) return false;
    return true;
}
static_assert(AreNumbersDistinct(), "each model has a number of its own");

thread_local const ProductModel* ofThisThread = nullptr;

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
    if (ofThisThread) return *ofThisThread;
    static const ProductModel* const row = FindProductModel(CProductID::getProductID());
    return row ? *row : unknown;
}

ProductModelScope::ProductModelScope(const ProductModel& model)
    : m_before(std::exchange(ofThisThread, &model))
{
}

ProductModelScope::~ProductModelScope()
{
    ofThisThread = m_before;
}
