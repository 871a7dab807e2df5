/// ReplySource: how a network client's requests leave and where their replies come from.
#pragma once

#include <string>

#include "config/access/io/outcome.h"
#include "config/access/protocol/network_protocol.h"

namespace vexa::corvalis::config::access {

/// A message as received: its record, of a size that its type gives, and its payload. The payload is shorter
/// than announced when the announced length was too large.
struct Message {
    uint32_t type = 0;
    std::string record;
    std::string payload;

    template <class Record>
    Record As() const
    {
        Record result;
        Decode(record.data(), record.size(), result);
        return result;
    }
};

/// The reply that one exchange waits for.
struct ReplyMatch {
    uint32_t type = 0;       ///< 0: none is awaited
    uint32_t otherType = 0;  ///< accepted as well; 0: none
    // Over UDP only, where replies may come late or from elsewhere:
    uint32_t connectionID = 0;
    eParam_t paramID{};  ///< 0: a reply without a parameter
};

/// Thread: one exchange at a time, under a lock of the client; Stop on any.
class ReplySource {
  public:
    virtual ~ReplySource() = default;
    /// Sends a request whose reply will be the one described; late replies to earlier requests are dropped.
    /// @return false when it cannot be sent in time.
    virtual bool Send(const std::string& request, const ReplyMatch& match, unsigned int timeoutMs) = 0;
    /// Waits for that reply and drops others. One exchange at a time. A time-out is reported as by
    /// Socket::read_select. @return kReceived, kTimedOut or kFailed.
    virtual Outcome Await(unsigned int timeoutMs, Message& reply) = 0;
    /// Waits for the answer to a Connect. Nothing can precede it, so the next bytes are taken for it.
    /// @param length  of the record. @return kReceived, kTimedOut or kFailed.
    virtual Outcome AwaitFirst(char* bytes, unsigned int length, unsigned int timeoutMs) = 0;
    /// Ends all waits, now and later. Thread: any.
    virtual void Stop() {}
};

/// The first word of a message of at least four bytes.
uint32_t TypeOf(const char* data);

}  // namespace vexa::corvalis::config::access
