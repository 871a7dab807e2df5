/// ParamDescriptor: everything about one parameter except its value.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "config/base/export.h"
#include "config/base/semaphore_helper.h"
#include "config/param_ids.h"
#include "config/param_types.h"

class Config;

/// Metadata of one parameter, and the base of the typed descriptors.
///
/// Made by the catalogue, owned by the registry, read-only elsewhere: callers borrow pointers. All
/// getters return copies, setters store what they are given without a check (the store validates values).
/// Thread: built and changed on one thread at start-up; read by any afterwards.
/// The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT ParamDescriptor {
  public:
    /// One condition: the named parameter holds the given value.
    struct Relation {
        eParam_t paramID;    ///< whose value counts
        unsigned int value;  ///< which it has to hold
        bool operator==(const Relation&) const = default;
    };
    /// The conditions of each kind, by the names of GetRelation.
    using Relations = std::map<std::string, std::vector<Relation>>;
    /// What a front end may run for a parameter.
    using Action = std::function<bool(Config*, ParamDescriptor*)>;

    ParamDescriptor() = default;
    ParamDescriptor(const ParamDescriptor&) = delete;
    ParamDescriptor& operator=(const ParamDescriptor&) = delete;
    virtual ~ParamDescriptor() = default;

    /// The identifier.
    virtual eParam_t GetParamID() { return m_paramID; }
    virtual void SetParamID(eParam_t id) { m_paramID = id; }
    /// What kind of value it has.
    virtual eParamType_t GetParamType() { return m_paramType; }
    virtual void SetParamType(eParamType_t type) { m_paramType = type; }
    /// The symbolic identifier, "eParamID_LED_Identify".
    virtual std::string GetParamIDName() { return m_paramIDName; }
    virtual void SetParamIDName(std::string name) { m_paramIDName = std::move(name); }
    /// The feature class, for front ends that show parameters by it.
    virtual eFeature_t GetFeatureType() { return m_featureType; }
    virtual void SetFeatureType(eFeature_t type) { m_featureType = type; }
    /// Whether the value outlives a restart.
    virtual ePersist_t GetPersistenceType() { return m_persistenceType; }
    virtual void SetPersistenceType(ePersist_t type) { m_persistenceType = type; }
    /// Whether presets hold the value.
    virtual eUserRegisterData_t GetRegisterType() { return m_registerType; }
    virtual void SetRegisterType(eUserRegisterData_t type) { m_registerType = type; }
    /// Which factory reset sets the default.
    virtual eFactoryReset_t GetFactoryResetType() { return m_factoryResetType; }
    virtual void SetFactoryResetType(eFactoryReset_t type) { m_factoryResetType = type; }
    /// Has one value, and no effect.
    virtual eAccess_t GetAccessType() { return m_accessType; }
    virtual void SetAccessType(eAccess_t type) { m_accessType = type; }
    /// The display name, "Identify LED".
    virtual std::string GetName() { return m_name; }
    virtual void SetName(std::string name) { m_name = std::move(name); }
    /// An abbreviation of about eight characters, "ID LED".
    virtual std::string GetShortName() { return m_shortName; }
    /// The same; the argument has no effect and stays for callers that pass a length.
    virtual std::string GetShortName(unsigned int) { return GetShortName(); }
    virtual void SetShortName(std::string name) { m_shortName = std::move(name); }
    /// A validation pattern for front ends; "*" accepts anything.
    virtual std::string GetRegEx() { return m_regEx; }
    virtual void SetRegEx(std::string regEx) { m_regEx = std::move(regEx); }

    /// Parameters whose values follow this one: each change of this one announces them too, one level deep.
    virtual std::vector<eParam_t> GetDependentParamIDs() { return m_dependentParamIDs; }
    virtual void SetDependentParamIDs(std::vector<eParam_t> ids) { m_dependentParamIDs = std::move(ids); }
    /// An identifier stands once in the list: adding it again moves it to the end.
    virtual void AddDependentParamID(eParam_t id);
    /// @return false when it is not in the list.
    virtual bool RemoveDependentParamID(eParam_t id);
    /// The other direction: parameters that this one follows.
    virtual std::vector<eParam_t> GetDependsOnParamIDs() { return m_dependsOnParamIDs; }
    virtual void SetDependsOnParamIDs(std::vector<eParam_t> ids) { m_dependsOnParamIDs = std::move(ids); }
    /// As for dependents: an identifier stands once, and moves to the end when it is added again.
    virtual void AddDependsOnParamID(eParam_t id);
    /// @return false when it is not in the list.
    virtual bool RemoveDependsOnParamID(eParam_t id);

    /// All conditions under which the parameter is enabled or disabled.
    virtual Relations GetRelations();
    /// The list under `name` ("enabled_by", "disabled_by"). An unknown name becomes a known one with an empty
    /// list.
    virtual std::vector<Relation> GetRelation(std::string name);
    virtual void AddRelation(std::string name, eParam_t id, unsigned int value);

    /// In order of addition, each once.
    virtual std::vector<std::string> GetClassNames() { return m_classNames; }
    /// Adds a word that front ends and programs know the parameter by; docs/parameters.md explains them.
    virtual void AddClassName(std::string name);
    /// @return false when the descriptor has no such class name.
    virtual bool RemoveClassName(std::string name);
    /// Exact and case-sensitive.
    virtual bool HasClassName(std::string name);
    /// Adds the class name, or removes it where it is.
    virtual void ToggleClassName(std::string name);

    /// Replace the content of the caller's map. Numeric and string attributes are separate name spaces.
    virtual void GetAttributes(std::map<std::string, unsigned int>& out);
    virtual void GetAttributes(std::map<std::string, std::string>& out) { out = m_stringAttributes; }
    /// The numeric attribute, or null: for look-ups on every write, which must not allocate. So a derived class
    /// that overrides GetAttribute is not asked.
    const unsigned int* FindNumber(std::string_view key) const;
    /// @param out  untouched when the key is absent.
    virtual bool GetAttribute(std::string key, unsigned int& out);
    virtual bool GetAttribute(std::string key, std::string& out);
    /// Inserts or overwrites.
    virtual void AddAttribute(std::string key, unsigned int value)
    {
        m_numericAttributes[std::move(key)] = value;
    }
    virtual void AddAttribute(std::string key, std::string value)
    {
        m_stringAttributes[std::move(key)] = std::move(value);
    }

    /// Kept for front ends that run it; the library never calls it.
    virtual void SetAction(Action action) { m_action = std::move(action); }
    virtual Action GetAction() { return m_action; }

  private:
    Action m_action;
    eParam_t m_paramID{};
    eParamType_t m_paramType = eCParam_Unset;
    std::string m_paramIDName;
    eFeature_t m_featureType = eFeature_3;
    ePersist_t m_persistenceType = ePersist;
    eUserRegisterData_t m_registerType = eRegister_Include;
    eFactoryReset_t m_factoryResetType = eFactoryReset_Include;
    eAccess_t m_accessType = eAccess_Default;
    std::string m_name, m_shortName, m_regEx;
    std::vector<eParam_t> m_dependentParamIDs, m_dependsOnParamIDs;
    static StaticLock s_relationsLock;  // a look-up of an unknown name adds an entry
    Relations m_relations VEXA_GUARDED_BY(s_relationsLock);
    std::vector<std::string> m_classNames;
    std::map<std::string, unsigned int, std::less<>> m_numericAttributes;
    std::map<std::string, std::string> m_stringAttributes;
};
