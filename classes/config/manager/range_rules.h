/// RangeRules: the device's own rules about take numbers, clip naming and media space.
#pragma once

#include <functional>

#include "config/param_ids.h"

class Config;

namespace vexa {

/// Works on one store: reads its clip-naming parameters, asks the product's media library which takes exist,
/// and writes takes without an event. Thread: any. No lock is held while the media library is asked; where new clip
/// naming resets a take, the caller holds the store's turn, so that no other naming comes in between.
class RangeRules {
  public:
    /// @param store        borrowed.
    /// @param setSilently  stores a number without preconditions and events.
    RangeRules(Config& store, std::function<void(eParam_t, unsigned int)> setSilently)
        : m_store(store), m_setSilently(std::move(setSilently))
    {
    }

    /// Corrects a value of a parameter that has a rule.
    void Limit(eParam_t id, unsigned int& value);
    /// Raises a take number above the takes on the media, at most to 999.
    void LimitTake(unsigned int& value);
    /// The effects of a stored change: new clip naming resets the take.
    void AfterNumber(eParam_t id);
    void AfterText(eParam_t id);

  private:
    void LimitCustomTake(unsigned int& value);
    static void LimitTake(Config& naming, unsigned int& value);
    void ResetTake(eParam_t take);

    Config& m_store;
    const std::function<void(eParam_t, unsigned int)> m_setSilently;
};

}  // namespace vexa
