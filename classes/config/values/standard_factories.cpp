#include "config/values/standard_factories.h"

#include "config/base/log.h"
#include "config/base/no_destructor.h"
#include "config/values/package_header.h"
#include "config/values/sector_header.h"
#include "config/values/vector.h"

SectorHeaderFactory::SectorHeaderFactory() : ClassFactory(eClassID_SectorHeader)
{
    Register(this);
}

Serializable* SectorHeaderFactory::Create()
{
    static vexa::NoDestructor<SectorHeader> header;
    return &*header;
}

namespace vexa::config::values {

VectorFactory::VectorFactory() : ClassFactory(eClassID_Vector)
{
    Register(this);
}

Serializable* VectorFactory::Create()
{
    Print("VectorFactory::Create - return new Vector()\n");
    return new Vector;
}

PresetsFactory::PresetsFactory(ePresetsPolicy policy)
    : ClassFactory(eClassID_PresetsParamVector), m_policy(policy)
{
    Register(this);
}

Serializable* PresetsFactory::Create()
{
    if (m_policy == ePresetsPolicy_ParamVector) return new PresetsParamVector;
    Print("PresetsFactory::Create - unknown policy %d, unable to create Presets instance\n",
          static_cast<int>(m_policy));
    return nullptr;
}

PackageHeaderFactory::PackageHeaderFactory() : ClassFactory(eClassID_PackageHeader)
{
    Register(this);
}

// Log readers look for this text, so it keeps naming the vector.
Serializable* PackageHeaderFactory::Create()
{
    Print("PackageHeaderFactory::Create - return new Vector()\n");
    return new PackageHeader;
}

}  // namespace vexa::config::values

void RegisterStandardFactories()
{
    new IntegerFactory;
    new StringFactory;
    new SectorHeaderFactory;
    new CheckpointFactory;
    new vexa::config::values::VectorFactory;
    new vexa::config::values::PresetsFactory(vexa::config::values::ePresetsPolicy_ParamVector);
    new vexa::config::values::PackageHeaderFactory;
}

/// Defined here because the class factory's directory must not depend on the classes that it makes.
void ClassFactory::InitFactories()
{
    RegisterIfEmpty(&RegisterStandardFactories);
}
