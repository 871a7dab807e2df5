#include "config/access/network_payload.h"

#include "config/config_value.h"
#include "config/memory_deserializer.h"
#include "config/memory_serializer.h"
#include "config/private_value.h"

namespace vexa::corvalis::config::access {

namespace {

constexpr auto kFormat = static_cast<eSerializationFormat>(kStreamFormat);

}  // namespace

std::string WritePayload(Serializable* object)
{
    const PrivateCopy copy(object);
    std::string bytes(MemorySerializerSizer::GetSize(copy.get(), nullptr), '\0');
    MemorySerializer serializer(kFormat, bytes.data(), bytes.data() + bytes.size(), false);
    if (!bytes.empty()) serializer.Write("Serializable", copy.get());
    return bytes;
}

std::unique_ptr<Serializable> ReadPayload(const char* payload, size_t length)
{
    char* const start = const_cast<char*>(payload);  // only read
    MemoryDeSerializer stream(kFormat, start, start + length, false);
    return ReadPrivate(stream);
}

bool ReadTextPayload(const char* payload, size_t length, std::string& text)
{
    const auto object = ReadPayload(payload, length);
    auto* const value = dynamic_cast<StringValue*>(object.get());
    if (!value) return false;
    value->Get(text);
    return true;
}

}  // namespace vexa::corvalis::config::access
