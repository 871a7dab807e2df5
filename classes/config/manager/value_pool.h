/// The values of deleted stores.
#pragma once

#include <map>

#include "config/param_ids.h"

class ConfigValue;
class Serializable;

/// Values outlive their store, because somebody may still hold a pointer from GetSerializable. They wait here
/// for the next store, of whatever configuration ID: there are never more than the stores that lived at once
/// had, however many configurations a peer names.
/// They come back clean, while the first values of a store with a number other than 0 start dirty, since they
/// were given it. Thread: any.
namespace value_pool {

/// @param values  become the pool's.
void Give(const std::map<eParam_t, Serializable*>& values);

/// A value of an earlier store, set to its factory default and not dirty; the caller owns it. Null when there
/// is none.
ConfigValue* Take(eConfigID_t configID, eParam_t paramID);

}  // namespace value_pool
