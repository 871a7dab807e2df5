#include "config/streams/serializer.h"

void Serializer::Write(ClassFactoryHeader& header)
{
    Write("ClassID", static_cast<unsigned int>(header.classID));
}

void Serializer::WriteObject(Serializable* object, eClassID_t classID)
{
    if (!object || m_nesting == kMaxObjectNesting) return Fail();
    ++m_nesting;
    ClassFactoryHeader header{classID};
    Write(header);
    object->Serialize(this);
    --m_nesting;
}
