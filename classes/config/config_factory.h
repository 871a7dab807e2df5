/// ConfigFactory: connects a URI to a Config.
#pragma once

#include <string>

#include "config/base/export.h"

class Config;

/// A base of the connector and of queue clients, whose Run does nothing.
class VEXA_EXPORT Runnable {
  public:
    virtual ~Runnable() = default;
    /// Has no meaning.
    virtual void Run() = 0;
};

/// Thread: any. The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT ConfigFactory : public Runnable {
  public:
    /// @return null on failure. The caller does not delete it, but gives it back with Disconnect.
    virtual Config* Connect(std::string uri) = 0;
    /// The Config must not be used any more. In a callback of it, it is deleted when the callback has ended, and no
    /// listener of a Config that is deleted is called any more. Null, and a Config that this factory did not hand out
    /// or that was given back already, is ignored.
    virtual void Disconnect(Config* config) = 0;
};
