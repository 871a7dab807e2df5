#include "config/descriptors/registry/menu_order.h"

#include <algorithm>
#include <boost/tokenizer.hpp>
#include <cstdlib>
#include <limits>
#include <string>

#include "config/descriptors/registry/registry.h"

namespace {

std::string MenuNumber(eParam_t id)
{
    std::string number;
    if (ParamDescriptor* const descriptor = FindDescriptor(id))
        descriptor->GetAttribute("menu_number", number);
    return number;
}

/// A token as a signed 32-bit number on every machine: `long` is wider on some.
int32_t Number(const std::string& token)
{
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(
        std::clamp<long>(strtol(token.c_str(), nullptr, 10), Limits::min(), Limits::max()));
}

}  // namespace

bool MenuNumberCompare(eParam_t a, eParam_t b)
{
    using Tokenizer = boost::tokenizer<boost::char_separator<char>>;
    const boost::char_separator<char> dot(".");
    const std::string numberA = MenuNumber(a), numberB = MenuNumber(b);
    const Tokenizer tokensA(numberA, dot), tokensB(numberB, dot);
    auto itA = tokensA.begin();
    auto itB = tokensB.begin();
    for (; itA != tokensA.end() && itB != tokensB.end(); ++itA, ++itB) {
        const int32_t left = Number(*itA), right = Number(*itB);
        if (left != right) return left < right;
    }
    // True for two equal menu numbers as well: front ends rely on the asymmetry, so it stays.
    return itA == tokensA.end();
}

bool MenuNumberCompareStrings(eParam_t a, eParam_t b)
{
    return MenuNumber(a) < MenuNumber(b);
}

void SortByMenuNumber(std::list<eParam_t>& ids)
{
    ids.sort(MenuNumberCompare);
}
