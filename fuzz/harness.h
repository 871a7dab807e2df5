/// The common part of the harnesses. Each harness is a function that gets bytes as a peer or a user could
/// send them: libFuzzer makes them up (scripts/fuzz), replay.cpp reads the inputs that were kept.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "config/access/connector/config_factory_impl.h"
#include "config/config.h"
#include "config/descriptors/registry/registry.h"

/// One input. @return 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Ends the process when a condition fails that has to hold for any bytes.
inline void Require(bool holds, const char* what)
{
    if (holds) return;
    dprintf(STDERR_FILENO, "broken: %s\n", what);
    abort();
}

/// Hides the library's lines about bad messages, since most messages here are bad. Sanitizers and the fuzzer
/// write past the stream.
inline void SilenceLibrary()
{
    stderr = fopen("/dev/null", "w");
    std::cerr.rdbuf(nullptr);
}

/// A store of this process with its catalogue; open until the process ends, because making one takes long.
inline Config& OpenStore(eConfigID_t id = 0)
{
    SilenceLibrary();
    CreateDescriptors();
    Config* const store = ConfigFactoryImpl::GetInstance()->Connect("local:configid=" + std::to_string(id));
    Require(store, "a local store can be opened");
    return *store;
}

/// After any input the next client is served.
inline void RequireService(Config& store)
{
    constexpr unsigned int kNumber = 7;
    Require(store.Set(eParamID_RegisterSave, kNumber), "the store takes a number");
    Require(store.Get(eParamID_RegisterSave) == kNumber, "the store has the number");
}

/// An input as a list of pieces. Each has its length in front: two bytes, the high one first. The last piece
/// may be shorter.
class Pieces {
  public:
    Pieces(const uint8_t* data, size_t size) : m_rest(reinterpret_cast<const char*>(data), size) {}

    bool IsEmpty() const { return m_rest.empty(); }
    /// The next piece; empty when there is none.
    std::string Next()
    {
        if (m_rest.size() < 2) {
            m_rest.clear();
            return "";
        }
        const auto byte = [&](size_t i) {
            return static_cast<size_t>(static_cast<unsigned char>(m_rest[i]));
        };
        std::string piece = m_rest.substr(2, byte(0) << 8 | byte(1));
        m_rest.erase(0, 2 + piece.size());
        return piece;
    }

  private:
    std::string m_rest;
};
