/// UpdatePrecondition: asked by the store before every change.
#pragma once

#include <deque>
#include <string>
#include <utility>

#include "config/base/export.h"
#include "config/param_ids.h"

class Config;
class Serializable;
class EnumDescriptor;
class IntegerDescriptor;

namespace vexa::config {

/// The pending changes of one write. The front entry is the one under test; a precondition may change, add or
/// remove entries, and the entry at the front afterwards is stored. So a write is a queue.
using IntegerQueue = std::deque<std::pair<eParam_t, unsigned int>>;
/// The same of texts.
using StringQueue = std::deque<std::pair<eParam_t, std::string>>;

/// May veto a change (false), drop it from the queue, correct it in place, or add further ones. Of a string in front
/// only the veto counts: the store keeps the string that it was given. Thread: the writer's. The order of the virtual
/// operations is part of the contract: append only.
class VEXA_EXPORT UpdatePrecondition {
  public:
    virtual ~UpdatePrecondition() = default;
    /// @param config  the store itself, to read descriptors and other parameters.
    virtual bool IsUpdateValid(Config* config, IntegerQueue& queue) = 0;
    virtual bool IsUpdateValid(Config* config, StringQueue& queue) = 0;
    virtual bool IsUpdateValid(Config* config, eParam_t id, Serializable& value) = 0;
};

/// The rules of the descriptors, which every store has: an enumeration takes only its listed values, a number
/// is corrected into its range, and "dependent_minimum" ties a number to another parameter. Strings pass
/// unseen. No state; thread: any.
class VEXA_EXPORT UpdatePreconditionValues : public UpdatePrecondition {
  public:
    bool IsUpdateValid(Config* config, IntegerQueue& queue) override;
    bool IsUpdateValid(Config*, StringQueue&) override { return true; }
    bool IsUpdateValid(Config*, eParam_t, Serializable&) override { return true; }

    /// Whether the value is one of the enumeration's.
    virtual bool IsValidEnum(EnumDescriptor* descriptor, unsigned int& value);
    /// Whether min <= value <= max. A minimum above the maximum admits min .. min + max instead.
    virtual bool IsValidRange(IntegerDescriptor* descriptor, unsigned int& value);
    /// Corrects a value into its range. @return the limit that was compared with: the minimum for a value
    /// below it, else the maximum.
    virtual unsigned int ForceValidRange(IntegerDescriptor* descriptor, unsigned int& value);
    /// The dependent minimum: keeps the value above `maximum` - `minimum`, in wrapping 32-bit arithmetic.
    /// With `minimum` 0 every value becomes `maximum` + 1; the result is deliberate.
    virtual void ForceValidRange(unsigned int& value, unsigned int minimum, unsigned int maximum);
};

}  // namespace vexa::config
