/// ConfigEventListener: called at every change of the configurations it is registered with.
#pragma once

#include <sys/time.h>

#include <string>

#include "config/base/export.h"
#include "config/config_event.h"

/// Thread: a store calls on the thread that made the change, a client of another process on threads of its
/// own. Callbacks should be quick; their results are ignored. A callback may read and write the same
/// configuration: its change is announced after the current one has reached every listener. Two callbacks
/// that write to each other's configuration, from two threads, wait for ever. A callback that writes at every
/// change, its own included, never lets the writer return.
/// The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT ConfigEventListener {
  public:
    virtual ~ConfigEventListener() = default;
    /// A number, or a text, has changed. @param time  of the change.
    virtual bool ParamChanged(eParam_t id, unsigned int value, timeval time) = 0;
    virtual bool ParamChanged(eParam_t id, std::string value, timeval time) = 0;
    /// The bytes of a data parameter have changed; they are this listener's own copy.
    virtual bool DataChanged(eParam_t, std::string&, timeval) { return false; }
    /// The record form, for listeners that queue events; stores never call it.
    virtual void ParamChanged(ConfigEvent) {}
};
