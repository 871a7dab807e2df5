/// Identifiers of the parameters and of the configuration instances.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

/// A parameter. High to low byte: menu group, item, sub-item, index. Values from a peer may be any 32-bit
/// number.
enum eParam_t : uint32_t {
#define PARAM(name, id) eParamID_##name = id,
#include "config/param_ids.inc"
#undef PARAM
};

/// One configuration instance (one store); 0 is the default instance, the number behind "configid=" in a URI.
using eConfigID_t = int32_t;

/// Every parameter of any model, in the order of the table.
inline constexpr eParam_t kAllParamIDs[] = {
#define PARAM(name, id) eParamID_##name,
#include "config/param_ids.inc"
#undef PARAM
};

/// What the assertion below asks of them.
constexpr bool AllDistinctAndNonZero(const auto& ids)
{
    std::array<eParam_t, std::size(kAllParamIDs)> sorted{};
    std::copy(std::begin(ids), std::end(ids), sorted.begin());
    std::sort(sorted.begin(), sorted.end());
    return sorted.front() != 0 && std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end();
}
static_assert(AllDistinctAndNonZero(kAllParamIDs), "two parameters share an identifier, or one has none");
