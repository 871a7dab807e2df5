/// The values of deleted stores.
#pragma once

#include <map>

#include "config/param_ids.h"

class ConfigValue;
class Serializable;

/// Values outlive their store, because a caller may still hold a pointer from GetSerializable. They are
/// reused by the next store, of any configuration ID: so there are never more than the stores that lived at
/// once had, however many configurations a peer names.
/// Reused values are clean, while the new values of a store with an ID other than 0 are dirty, because the ID
/// was set on them.
/// Thread: any.
namespace value_pool {

/// @param values  belong to the pool from now on.
void Give(const std::map<eParam_t, Serializable*>& values);

/// A value of an earlier store, set to its factory default and not dirty; the caller owns it. Null when there
/// is none.
ConfigValue* Take(eConfigID_t configID, eParam_t paramID);

}  // namespace value_pool
