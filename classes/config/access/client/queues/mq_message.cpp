#include "config/access/client/queues/mq_message.h"

#include <algorithm>
#include <cstring>

#include "config/streams/memory_deserializer.h"
#include "config/values/config_value.h"
#include "config/values/private_value.h"

namespace vexa::config::access {

MQMessage MQMessage::Decode(const char* data, size_t length)
{
    char head[kQueueResponseBytes] = {};
    memcpy(head, data, std::min(length, sizeof head));
    MQMessage message;
    wire::Decode<wire::HostOrder>(head, sizeof head, static_cast<XCONFIGMGR_RESPONSE_T&>(message));
    if (length > sizeof head) message.stream.assign(data + sizeof head, length - sizeof head);
    return message;
}

MQMessage MQMessage::FromMemory(const XCONFIGMGR_RESPONSE_T* response)
{
    static_assert(sizeof *response == kQueueResponseBytes);
    return Decode(reinterpret_cast<const char*>(response), sizeof *response + response->streamLength);
}

std::unique_ptr<Serializable> MQMessage::ReadObject() const
{
    if (!HasStream()) return nullptr;
    char* const start = const_cast<char*>(stream.data());  // only read
    MemoryDeSerializer reader(static_cast<eSerializationFormat>(kQueueStreamFormat), start,
                              start + streamLength, false);
    return ReadPrivate(reader);
}

bool MQMessage::ReadText(std::string& text) const
{
    const auto object = ReadObject();
    auto* const stored = dynamic_cast<StringValue*>(object.get());
    if (!stored) return false;
    stored->Get(text);
    return true;
}

}  // namespace vexa::config::access
