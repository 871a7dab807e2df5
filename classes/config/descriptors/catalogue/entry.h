/// How a catalogue entry is written: the class, the names, then only what differs from the default.
///
///     Register(Enum(PARAM_ID(LED_Identify), "Identify LED", "ID LED")
///                  .Feature(eFeature_5)
///                  .Values({{0, "OFF"}, {1, "ON"}, {2, "Blink"}})
///                  .ClassName("led")
///                  .Description("Provides control of the Identify LED on the back of the unit."));
///
/// Defaults: type 3 for enumerations, 4 for integers, 12 for texts; feature 3, persistent, part of user
/// registers, reset on factory reset, pattern "*". An enumeration ranges from 0 to its highest value.
///
/// Every entry takes its steps in the order in which they are declared below, so that two entries can be compared
/// line by line: type, feature, lifetime (Status, Command, Internal or the single steps), range or length,
/// default, step and scale, units, values, class names, relations, dependencies, attributes, action, description.
///
/// A parameter stands once. Where models differ, the conditions stand beside what they decide: ValuesIf,
/// ClassNameIf, a default that is chosen in place, or a function that returns the list of the model.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "config/descriptors/descriptor_table.h"
#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/string_descriptor.h"

/// Identifier and symbolic name of a parameter, for the first two arguments of an entry.
#define PARAM_ID(name) eParamID_##name, "eParamID_" #name

namespace vexa::config::catalogue {

/// The text in the language of the process, from the text domain "config"; as it is in the C locale, on models that
/// are not translated, and where the language lacks it. Entries ask for all that front ends show.
std::string Translated(std::string text);

/// A parameter by identifier and symbolic name, for tables of entries that differ in little: {PARAM_ID(name)}.
struct ParamName {
    eParam_t id;
    const char* idName;
};

/// One enumerated value of an entry. The short name is the name unless given.
struct NamedValue {
    unsigned int value;
    std::string name;
    std::string shortName = {};
    EnumValueDescriptor::EnumValueData data = {};
};

/// The steps that all entries share. They return Self, the concrete entry, so that its own steps may follow.
template <class Descriptor, class Self>
class Entry {
  public:
    Entry(eParam_t id, std::string idName, std::string name, std::string shortName, eParamType_t type)
        : m_descriptor(std::make_unique<Descriptor>())
    {
        m_descriptor->SetParamID(id);
        m_descriptor->SetParamIDName(std::move(idName));
        m_descriptor->SetName(Translated(std::move(name)));
        m_descriptor->SetShortName(Translated(std::move(shortName)));
        m_descriptor->SetParamType(type);
        m_descriptor->SetRegEx("*");
    }

    // clang-format off
    Self& Type(eParamType_t type) { m_descriptor->SetParamType(type); return This(); }
    Self& Feature(eFeature_t feature) { m_descriptor->SetFeatureType(feature); return This(); }
    Self& NotPersisted() { m_descriptor->SetPersistenceType(ePersist_Exclude); return This(); }
    Self& NotInRegisters() { m_descriptor->SetRegisterType(eRegister_Exclude); return This(); }
    Self& Reset(eFactoryReset_t reset) { m_descriptor->SetFactoryResetType(reset); return This(); }
    Self& NotReset() { return Reset(eFactoryReset_Exclude); }
    /// Neither kept, nor in registers, nor reset: the base of the three lifetimes below.
    Self& Transient() { return NotPersisted().NotInRegisters().NotReset(); }
    /// A status value: reported by the device, transient, not set by users.
    Self& Status() { return Transient().ClassName("readonly"); }
    /// A request to the device: transient.
    Self& Command() { return Transient(); }
    /// A word between the device's own processes: transient, shown by no front end.
    Self& Internal() { return Feature(eFeature_2).Transient().ClassName("hidden_param"); }
    Self& ClassName(const char* name) { m_descriptor->AddClassName(name); return This(); }
    Self& ClassNameIf(bool condition, const char* name) { return condition ? ClassName(name) : This(); }
    /// For parameters that the store needs on every model, also where users have no use for them.
    Self& HiddenUnless(bool shown) { return ClassNameIf(!shown, "hidden_param"); }
    Self& EnabledBy(eParam_t id, unsigned int value)
    {
        m_descriptor->AddRelation("enabled_by", id, value);
        return This();
    }
    Self& EnabledByIf(bool condition, eParam_t id, unsigned int value)
    {
        return condition ? EnabledBy(id, value) : This();
    }
    Self& DisabledBy(eParam_t id, unsigned int value)
    {
        m_descriptor->AddRelation("disabled_by", id, value);
        return This();
    }
    Self& DisabledByIf(bool condition, eParam_t id, unsigned int value)
    {
        return condition ? DisabledBy(id, value) : This();
    }
    /// A parameter that follows this one. The registry tells it so, once all are there.
    Self& Dependent(eParam_t id) { m_descriptor->AddDependentParamID(id); return This(); }
    Self& DependentIf(bool condition, eParam_t id) { return condition ? Dependent(id) : This(); }
    Self& Attribute(const char* key, unsigned int value) { m_descriptor->AddAttribute(key, value); return This(); }
    Self& Attribute(const char* key, std::string value)
    {
        m_descriptor->AddAttribute(key, std::move(value));
        return This();
    }
    Self& Action(ParamDescriptor::Action action) { m_descriptor->SetAction(std::move(action)); return This(); }
    Self& Description(std::string text) { return Attribute("description", Translated(std::move(text))); }
    // clang-format on

    std::unique_ptr<ParamDescriptor> Release() { return std::move(m_descriptor); }

  protected:
    Self& This() { return static_cast<Self&>(*this); }
    std::unique_ptr<Descriptor> m_descriptor;
};

class Enum : public Entry<EnumDescriptor, Enum> {
  public:
    Enum(eParam_t id, std::string idName, std::string name, std::string shortName)
        : Entry(id, std::move(idName), std::move(name), std::move(shortName), eCParam_EnumValue)
    {
    }
    // clang-format off
    /// Only for a range that reaches beyond the values.
    Enum& MaxValue(unsigned int value) { m_descriptor->SetMaxValue(value); return *this; }
    Enum& Default(unsigned int value) { m_descriptor->SetFactoryDefault(value); return *this; }
    // clang-format on
    /// Appends values, in display order. The range becomes 0 .. highest value.
    Enum& Values(const std::vector<NamedValue>& values);
    /// The same for values that only some models have.
    Enum& ValuesIf(bool condition, const std::vector<NamedValue>& values);
};

class Integer : public Entry<IntegerDescriptor, Integer> {
  public:
    Integer(eParam_t id, std::string idName, std::string name, std::string shortName)
        : Entry(id, std::move(idName), std::move(name), std::move(shortName), eCParam_IntegerValue)
    {
    }
    Integer& Range(unsigned int min, unsigned int max);
    // clang-format off
    Integer& Default(unsigned int value) { m_descriptor->SetFactoryDefault(value); return *this; }
    Integer& AdjustBy(unsigned int step) { m_descriptor->SetAdjustBy(step); return *this; }
    Integer& ScaleBy(unsigned int scale) { m_descriptor->SetScaleBy(scale); return *this; }
    Integer& DisplayPrecision(unsigned int digits) { m_descriptor->SetDisplayPrecision(digits); return *this; }
    Integer& Units(const char* units) { m_descriptor->SetUnits(Translated(units)); return *this; }
    // clang-format on
    /// The words that front ends put after a value of one and of several.
    Integer& Suffixes(const char* singular, const char* plural);
    /// Keeps the value above this one's maximum less what the other parameter holds. The other one's minimum
    /// must be 1 or more: 0 would push every value above the maximum.
    Integer& DependentMinimum(eParam_t other) { return Attribute("dependent_minimum", other); }
};

class String : public Entry<StringDescriptor, String> {
  public:
    String(eParam_t id, std::string idName, std::string name, std::string shortName)
        : Entry(id, std::move(idName), std::move(name), std::move(shortName), eCParam_StringValue)
    {
    }
    /// Length limits in bytes; the character positions follow.
    String& Length(unsigned int min, unsigned int max);
    // clang-format off
    String& Default(std::string text) { m_descriptor->SetFactoryDefault(std::move(text)); return *this; }
    // clang-format on
};

/// Opaque bytes, written and read whole.
class Data : public Entry<DataDescriptor, Data> {
  public:
    Data(eParam_t id, std::string idName, std::string name, std::string shortName)
        : Entry(id, std::move(idName), std::move(name), std::move(shortName), eCParam_StringValue)
    {
    }
    /// Largest number of bytes, also told to front ends as "size_limit".
    Data& SizeLimit(unsigned int bytes);
};

class AlarmEntry : public Entry<AlarmDescriptor, AlarmEntry> {
  public:
    AlarmEntry(eParam_t id, std::string idName, std::string name, std::string shortName)
        : Entry(id, std::move(idName), std::move(name), std::move(shortName), eCParam_StringValue)
    {
    }
    // clang-format off
    AlarmEntry& Default(std::string message) { m_descriptor->SetFactoryDefault(std::move(message)); return *this; }
    // clang-format on
};

/// The table that the builders fill on this thread, for the life of a scope; without one, that of the process.
class BuildTarget {
  public:
    explicit BuildTarget(DescriptorTable& table);
    ~BuildTarget();
    BuildTarget(const BuildTarget&) = delete;
    BuildTarget& operator=(const BuildTarget&) = delete;

    static DescriptorTable& Current() { return s_current ? *s_current : g_paramDescriptors; }

  private:
    static inline thread_local DescriptorTable* s_current = nullptr;

    DescriptorTable* const m_before;
};

/// Hands a descriptor to the main registry, in place of an earlier one with its identifier.
void Register(std::unique_ptr<ParamDescriptor> descriptor);

template <class Descriptor, class Self>
void Register(Entry<Descriptor, Self>& entry)
{
    Register(entry.Release());
}

}  // namespace vexa::config::catalogue
