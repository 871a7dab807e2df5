/// ConfigFactory: connects a URI to a Config.
#pragma once

#include <string>

#include "config/base/export.h"

class Config;

/// A base of the connector and of queue clients, whose Run does nothing.
class VEXA_EXPORT Runnable {
  public:
    virtual ~Runnable() = default;
    virtual void Run() = 0;
};

/// Thread: any. The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT ConfigFactory : public Runnable {
  public:
    /// @return null on failure. The caller does not delete it, but gives it back with Disconnect.
    virtual Config* Connect(std::string uri) = 0;
    /// The Config must not be used any more. Null, and a store that this factory did not hand out, is
    /// ignored.
    virtual void Disconnect(Config* config) = 0;
};
