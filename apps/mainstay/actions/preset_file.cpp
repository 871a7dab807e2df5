#include "mainstay/actions/preset_file.h"

#include "config/descriptors/descriptor_table.h"
#include "config/streams/big_endian.h"
#include "config/streams/class_factory.h"
#include "config/values/config_value.h"
#include "config/values/package_header.h"
#include "config/values/vector.h"

namespace actions {

namespace {

using vexa::config::values::PresetsParamVector;

std::unique_ptr<ConfigValue> ObjectOf(eParam_t param, const vexa::Value& value)
{
    ParamDescriptor* const descriptor = FindDescriptor(param);
    const eParamType_t type = descriptor ? descriptor->GetParamType() : eCParam_Unset;
    if (const auto* const number = std::get_if<unsigned int>(&value))
        return std::make_unique<IntegerValue>(0, param, type, *number);
    return std::make_unique<StringValue>(0, param, type, std::get<std::string>(value));
}

/// An object of the class, out of the stream.
template <class Object>
std::unique_ptr<Object> ReadObject(vexa::BigEndianDeSerializer& stream)
{
    Serializable* object = nullptr;
    stream.Read("Object", object);
    auto* const wanted = dynamic_cast<Object*>(object);
    if (!wanted) ClassFactory::Release(object);
    return std::unique_ptr<Object>(wanted);
}

state::Values ValuesOf(const PresetsParamVector& objects)
{
    state::Values values;
    for (const auto& element : objects.Elements()) {
        if (auto* const number = dynamic_cast<IntegerValue*>(element.get())) {
            unsigned int value = 0;
            number->Get(value);
            values[number->GetParamID()] = value;
        } else if (auto* const text = dynamic_cast<StringValue*>(element.get())) {
            std::string value;
            text->Get(value);
            values[text->GetParamID()] = value;
        }
    }
    return values;
}

}  // namespace

std::string PackPreset(unsigned int productID, const state::Values& values)
{
    PackageHeader header;
    PresetsParamVector objects;
    for (const auto& [param, value] : values) objects.Add(ObjectOf(param, value));
    header.productID = productID;
    header.fileSize = MemorySerializerSizer(eSerializationFormat_Memory).GetSize(&header, nullptr) +
                      MemorySerializerSizer(eSerializationFormat_Memory).GetSize(&objects, nullptr);
    std::string bytes(header.fileSize, '\0');
    vexa::BigEndianSerializer stream(eSerializationFormat_Memory, bytes.data(), bytes.data() + bytes.size(),
                                     false);
    stream.Write("Header", &header);
    stream.Write("Values", &objects);
    return bytes;
}

std::optional<state::Values> UnpackPreset(unsigned int productID, std::string bytes, std::string& reason)
{
    vexa::BigEndianDeSerializer stream(eSerializationFormat_Memory, bytes.data(), bytes.data() + bytes.size(),
                                       false);
    const auto header = ReadObject<PackageHeader>(stream);
    const PackageHeader known;
    if (!header || header->packageHeaderVersion != known.packageHeaderVersion)
        reason = "it is no preset";
    else if (header->productID != productID)
        reason = "it is a preset of another model";
    else if (header->fileSize != bytes.size())
        reason = "it is not whole";
    if (!reason.empty()) return std::nullopt;
    const auto objects = ReadObject<PresetsParamVector>(stream);
    if (!objects || stream.Failed()) {
        reason = "it is damaged";
        return std::nullopt;
    }
    return ValuesOf(*objects);
}

}  // namespace actions
