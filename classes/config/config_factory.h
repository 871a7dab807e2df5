/// ConfigFactory: what connects a URI to a Config.
#pragma once

#include <string>

#include "config/base/export.h"

class Config;

class VEXA_EXPORT Runnable {
  public:
    virtual ~Runnable() = default;
    virtual void Run() = 0;
};

/// Thread: any. The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT ConfigFactory : public Runnable {
  public:
    /// @return null on failure. Not the caller's to delete: give it back with Disconnect.
    virtual Config* Connect(std::string uri) = 0;
    /// The Config must not be used any more. Null, and what this factory did not hand out, is left alone.
    virtual void Disconnect(Config* config) = 0;
};
