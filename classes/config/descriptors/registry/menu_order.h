/// Menu order: parameters sorted by the attribute "menu_number" ("3.1" before "3.10").
#pragma once

#include <list>

#include "config/base/export.h"
#include "config/param_ids.h"

/// Less-than by the numbers between the dots; a prefix comes first. Two equal menu numbers compare as true
/// both ways, so this is no strict ordering: never hand it to std::sort, std::set or a binary search. Use
/// SortByMenuNumber. Unknown identifiers have an empty menu number.
VEXA_EXPORT bool MenuNumberCompare(eParam_t a, eParam_t b);

/// Less-than as plain text: "10.1" before "9.1".
VEXA_EXPORT bool MenuNumberCompareStrings(eParam_t a, eParam_t b);

/// Sorts with MenuNumberCompare, safely: a list merge stays within bounds whatever the predicate answers.
VEXA_EXPORT void SortByMenuNumber(std::list<eParam_t>& ids);
