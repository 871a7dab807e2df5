#include "config/values/vector.h"

#include <algorithm>

#include "config/streams/deserializer.h"
#include "config/streams/serializer.h"
#include "config/values/private_value.h"

namespace vexa::config::values {

bool Vector::Add(std::unique_ptr<Serializable> element)
{
    if (!element) return false;
    m_elements.push_back(std::move(element));
    return true;
}

bool Vector::IsEqual(Serializable* other)
{
    if (!Serializable::IsEqual(other)) return false;
    auto* const vector = dynamic_cast<Vector*>(other);
    return vector && std::ranges::equal(m_elements, vector->m_elements,
                                        [](const auto& a, const auto& b) { return a->IsEqual(b.get()); });
}

bool Vector::Serialize(Serializer* serializer)
{
    serializer->Write("Count", static_cast<unsigned int>(m_elements.size()));
    for (const auto& element : m_elements) serializer->Write("Element", element.get());
    return true;
}

bool Vector::Deserialize(DeSerializer* deserializer)
{
    m_elements.clear();
    unsigned int count = 0;
    if (!deserializer->Read("Count", count)) return false;
    // No memory is reserved for the count, which the peer chose: one that is too large fails at the first
    // missing element.
    for (; count > 0; --count) {
        if (Add(ReadPrivate(*deserializer))) continue;
        deserializer->Fail();
        return false;
    }
    return true;
}

bool PresetsParamVector::IsEqual(Serializable* other)
{
    auto* const presets = dynamic_cast<PresetsParamVector*>(other);
    return presets && Vector::IsEqual(other) && presets->m_presetsFile == m_presetsFile;
}

bool PresetsParamVector::Serialize(Serializer* serializer)
{
    Vector::Serialize(serializer);
    serializer->Write("PresetsFile", m_presetsFile.data(), static_cast<unsigned int>(m_presetsFile.size()));
    return true;
}

bool PresetsParamVector::Deserialize(DeSerializer* deserializer)
{
    if (!Vector::Deserialize(deserializer)) return false;
    char* bytes = nullptr;
    unsigned int length = 0;
    const bool ok = deserializer->Read("PresetsFile", bytes, length);
    const std::unique_ptr<char[]> owned(bytes);
    m_presetsFile.assign(bytes ? bytes : "", length);
    return ok;
}

}  // namespace vexa::config::values
