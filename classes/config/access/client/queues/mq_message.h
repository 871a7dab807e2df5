/// MQMessage: a message that a client of the message queues has received.
#pragma once

#include <memory>
#include <string>

#include "config/access/protocol/mq_protocol.h"
#include "config/streams/serializable.h"

namespace vexa::config::access {

/// The record of a response or an event, and the stream behind it. All messages to clients begin alike: the
/// error of a connection response is in the place of the listener responses' error.
/// Thread: one at a time; reading from any.
struct MQMessage : XCONFIGMGR_RESPONSE_T {
    std::string stream;  ///< to the end of the message, whatever `streamLength` says

    /// Words that the message is too short for are 0.
    static MQMessage Decode(const char* data, size_t length);
    /// From a record, and as much stream behind it as it says.
    static MQMessage FromMemory(const XCONFIGMGR_RESPONSE_T* response);

    /// An event answers no request; every other message is taken for an answer.
    bool IsEvent() const { return ::IsEvent(msgtype); }
    /// Whether there is a stream, and all of it.
    bool HasStream() const { return streamLength != 0 && streamLength <= stream.size(); }
    /// The object in the stream, which the caller owns; null when it holds no whole object of a known class.
    std::unique_ptr<Serializable> ReadObject() const;
    /// The same, only for a text. @return false, with the text untouched, when there is none.
    bool ReadText(std::string& text) const;
};

}  // namespace vexa::config::access
