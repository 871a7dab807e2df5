/// The factories that every process has. Each registers itself when it is made, with new, and then belongs to
/// the registry of ClassFactory. Thread: any, as ClassFactory.
#pragma once

#include <cstdint>
#include <memory>

#include "config/streams/class_factory.h"
#include "config/values/checkpoint.h"
#include "config/values/config_value.h"

/// A factory with one prototype that it hands out on every call.
template <class Class, eClassID_t kID>
class PrototypeFactory : public ClassFactory {
  public:
    PrototypeFactory() : ClassFactory(kID), m_prototype(std::make_unique<Class>()) { Register(this); }
    Serializable* Create() override { return m_prototype.get(); }

  private:
    const std::unique_ptr<Class> m_prototype;
};

using IntegerFactory = PrototypeFactory<IntegerValue, eClassID_IntegerValue>;
using StringFactory = PrototypeFactory<StringValue, eClassID_StringValue>;
using CheckpointFactory = PrototypeFactory<Checkpoint, eClassID_Checkpoint>;

/// Hands out one process-wide header, made on the first call; it outlives the factory.
class SectorHeaderFactory : public ClassFactory {
  public:
    SectorHeaderFactory();
    Serializable* Create() override;
};

namespace vexa::config::values {

/// New objects.
class VectorFactory : public ClassFactory {
  public:
    VectorFactory();
    Serializable* Create() override;
};

/// The class of the objects that PresetsFactory makes.
enum ePresetsPolicy : uint32_t { ePresetsPolicy_ParamVector = 1 };

/// New PresetsParamVector objects with policy 1, null with any other.
class PresetsFactory : public ClassFactory {
  public:
    explicit PresetsFactory(ePresetsPolicy policy);
    Serializable* Create() override;

  private:
    const ePresetsPolicy m_policy;
};

/// New objects.
class PackageHeaderFactory : public ClassFactory {
  public:
    PackageHeaderFactory();
    Serializable* Create() override;
};

}  // namespace vexa::config::values

/// Makes them all, in the order of classes 0, 1, 6, 7, 9, 8, 14.
void RegisterStandardFactories();
