#include "config/manager/update_precondition.h"

#include "config/config.h"
#include "config/descriptors/enum_descriptor.h"

namespace vexa::config {

namespace {

/// How far a value lies above the minimum; negative when it lies below. Wraps like the numbers themselves.
int32_t Above(unsigned int minimum, unsigned int value)
{
    return static_cast<int32_t>(value - minimum);
}

}  // namespace

bool UpdatePreconditionValues::IsUpdateValid(Config* config, IntegerQueue& queue)
{
    if (queue.empty()) return false;
    auto [id, value] = queue.front();
    ParamDescriptor* const descriptor = config->GetParamDescriptor(id);
    if (!descriptor) return false;
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(descriptor)) {
        if (IsValidEnum(enumeration, value)) return true;
        queue.pop_front();
        return false;
    }
    auto* const integer = dynamic_cast<IntegerDescriptor*>(descriptor);
    if (!integer) return true;
    unsigned int& pending = queue.front().second;
    if (!IsValidRange(integer, value)) ForceValidRange(integer, pending);
    const unsigned int* const other = integer->FindNumber("dependent_minimum");
    if (other && *other != 0) ForceValidRange(pending, config->Get(eParam_t{*other}), integer->GetMaxValue());
    return true;
}

bool UpdatePreconditionValues::IsValidEnum(EnumDescriptor* descriptor, unsigned int& value)
{
    return descriptor->HasEnumValue(value);
}

bool UpdatePreconditionValues::IsValidRange(IntegerDescriptor* descriptor, unsigned int& value)
{
    const unsigned int min = descriptor->GetMinValue(), max = descriptor->GetMaxValue();
    if (min <= max) return min <= value && value <= max;
    const int32_t above = Above(min, value);
    return above >= 0 && static_cast<uint32_t>(above) <= max;
}

unsigned int UpdatePreconditionValues::ForceValidRange(IntegerDescriptor* descriptor, unsigned int& value)
{
    const unsigned int min = descriptor->GetMinValue(), max = descriptor->GetMaxValue();
    const bool below = min <= max ? value < min : Above(min, value) < 0;
    if (below) return value = min;
    if (value > max) value = max;
    return max;
}

void UpdatePreconditionValues::ForceValidRange(unsigned int& value, unsigned int minimum,
                                               unsigned int maximum)
{
    if (maximum - value >= minimum) value = maximum - minimum + 1;
}

}  // namespace vexa::config
