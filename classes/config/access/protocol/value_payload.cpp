#include "config/access/protocol/value_payload.h"

#include "config/streams/big_endian.h"
#include "config/values/config_value.h"
#include "config/values/private_value.h"

namespace vexa::corvalis::config::access {

namespace {

constexpr auto kFormat = static_cast<eSerializationFormat>(kStreamFormat);

/// The standard classes without a value. What they contain, and every object in it, would be made first, and
/// announce itself in the log.
bool IsNoValue(eClassID_t id)
{
    return id == eClassID_SectorHeader || id == eClassID_Checkpoint || id == eClassID_PresetsParamVector ||
           id == eClassID_Vector || id == eClassID_PackageHeader;
}

}  // namespace

std::string WritePayload(Serializable* object, std::endian order)
{
    const PrivateCopy copy(object);
    std::string bytes(MemorySerializerSizer::GetSize(copy.get(), nullptr), '\0');
    if (bytes.empty()) return bytes;
    MemorySerializer stream(kFormat, bytes.data(), bytes.data() + bytes.size(), false);
    BigEndianSerializer bigEndian(kFormat, bytes.data(), bytes.data() + bytes.size(), false);
    MemorySerializer& writer = order == std::endian::native ? stream : bigEndian;
    writer.Write("Serializable", copy.get());
    // An object without a copy may have changed since it was measured.
    bytes.resize(writer.Failed() ? 0 : writer.GetBytesWritten());
    return bytes;
}

std::unique_ptr<Serializable> ReadPayload(const char* payload, size_t length, std::endian order)
{
    char* const start = const_cast<char*>(payload);  // only read
    MemoryDeSerializer stream(kFormat, start, start + length, false);
    BigEndianDeSerializer bigEndian(kFormat, start, start + length, false);
    MemoryDeSerializer& reader = order == std::endian::native ? stream : bigEndian;
    long classID = 0;
    // A long is peeked at: the object is read from the same position.
    if (!reader.Read("ClassID", classID) || IsNoValue(static_cast<eClassID_t>(classID))) return nullptr;
    return ReadPrivate(reader);
}

bool ReadTextPayload(const char* payload, size_t length, std::string& text, std::endian order)
{
    const auto object = ReadPayload(payload, length, order);
    auto* const value = dynamic_cast<StringValue*>(object.get());
    if (!value) return false;
    value->Get(text);
    return true;
}

}  // namespace vexa::corvalis::config::access
