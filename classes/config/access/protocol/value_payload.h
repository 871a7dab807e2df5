/// Value objects as payloads of network messages.
#pragma once

#include <bit>
#include <memory>
#include <string>

#include "config/access/protocol/network_protocol.h"
#include "config/streams/serializable.h"

namespace vexa::corvalis::config::access {

/// The bytes around a text in a stream: class, configuration, parameter, type, and the NUL at the end.
inline constexpr size_t kTextObjectBytes = 17;
/// The longest text that travels in both directions, in bytes.
inline constexpr size_t kLongestText = 24'000;

/// A record and its payload in one piece, as they are sent.
template <class Record>
std::string MessageBytes(const Record& record, const std::string& payload = {})
{
    return wire::Bytes<wire::NetworkOrder>(record, payload);
}

// Streams carry no mark of their byte order: by default it is the host's own; for a host of the other order
// it has to be given.

/// The object in the stream format; empty for null. The object may change meanwhile: a copy is written.
/// Thread: any.
/// @param order  of its words.
std::string WritePayload(Serializable* object, std::endian order = std::endian::native);

/// The value that a payload holds, which the caller owns; null when it holds no whole object of a known
/// class. Records and containers, which no message carries, are not decoded. Thread: any.
std::unique_ptr<Serializable> ReadPayload(const char* payload, size_t length,
                                          std::endian order = std::endian::native);
/// The same, only for a text.
/// @return false, with the text untouched, when the payload holds none.
bool ReadTextPayload(const char* payload, size_t length, std::string& text,
                     std::endian order = std::endian::native);

}  // namespace vexa::corvalis::config::access
