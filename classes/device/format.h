/// Format and Parse: values as people write them. What is shown can be typed.
#pragma once

#include <optional>
#include <string>

#include "config/base/export.h"
#include "config/descriptors/param_descriptor.h"
#include "device/value.h"

namespace vexa {

/// "70 %", "12.50 V", "ProRes 422", "10.0.0.9", "Scene 12", "raised, ERROR: ...": without quotes, and with
/// whatever a device has put into a text. Thread: any, like the other operations.
VEXA_EXPORT std::string Format(ParamDescriptor& descriptor, const Value& value);
/// The other way round; also plain numbers ("0x" for hexadecimal ones), short names, and names in any case.
/// @param reason  why the text is no value of this parameter, as the end of a sentence. @return nothing then.
VEXA_EXPORT std::optional<Value> Parse(ParamDescriptor& descriptor, const std::string& text,
                                       std::string& reason);
/// Why a device does not store a value as it is: "outside 0 to 100 %"; nothing when it should.
VEXA_EXPORT std::optional<std::string> Objection(ParamDescriptor& descriptor, const Value& value);

/// "int", "enum", "str", "data" or "alarm".
VEXA_EXPORT const char* KindOf(ParamDescriptor& descriptor);
/// Whether the value is bytes, of a data or alarm parameter.
VEXA_EXPORT bool HoldsBytes(ParamDescriptor& descriptor);
/// Whether the value is a text or bytes, and no number.
VEXA_EXPORT bool HoldsText(ParamDescriptor& descriptor);

}  // namespace vexa
