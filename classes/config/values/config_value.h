/// ConfigValue and its two kinds: the value of one parameter as an object.
#pragma once

#include <atomic>
#include <string>

#include "config/base/export.h"
#include "config/base/semaphore_helper.h"
#include "config/param_ids.h"
#include "config/param_types.h"
#include "config/streams/serializable.h"

/// The identity of a value: which store, which parameter, which type.
///
/// Thread: the identity is set before the object is shared; the values of the subclasses have a lock of
/// their own. The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT ConfigValue : public Serializable {
  public:
    /// Same class, identity, dirty flag and value. The dirty flag takes part deliberately: a value that still
    /// has to be saved differs from a saved one.
    bool IsEqual(Serializable* other) override;
    bool Serialize(Serializer* serializer) override;
    /// Sets the fields as read; the dirty flag stays.
    bool Deserialize(DeSerializer* deserializer) override;

    /// The store that the value belongs to.
    virtual eConfigID_t GetConfigID() { return m_configID; }
    /// A different identity marks the object dirty; this holds for the next two as well.
    virtual void SetConfigID(eConfigID_t id);
    /// The parameter that the value is of.
    virtual eParam_t GetParamID() { return m_paramID; }
    virtual void SetParamID(eParam_t id);
    /// The type that a change event names.
    virtual eParamType_t GetParamType() { return m_paramType; }
    virtual void SetParamType(eParamType_t type);
    /// A new object with the same identity and value, not dirty; the caller owns it.
    virtual ConfigValue* Clone() = 0;
    /// Takes over the configuration ID and the value, not the parameter nor its type.
    virtual void Copy(ConfigValue& other);
    /// Takes over the value. An object of another class changes nothing.
    virtual void CopyValue(ConfigValue& other) = 0;
    /// Sets the parameter's factory default. A descriptor of another kind changes nothing.
    virtual void ResetToFactory() {}
    /// Identity and value on one line, for logs.
    virtual std::string ToString();

    ConfigValue(const ConfigValue&) = delete;

  protected:
    ConfigValue() = default;
    /// Not dirty.
    ConfigValue(eClassID_t classID, eConfigID_t configID, eParam_t paramID, eParamType_t type)
        : Serializable(classID), m_configID(configID), m_paramID(paramID), m_paramType(type)
    {
    }

  private:
    std::atomic<eConfigID_t> m_configID = 0;  // changes when the value goes to another store
    eParam_t m_paramID{};
    eParamType_t m_paramType = eCParam_Unset;
};

/// The common part of the two kinds of values: one T behind a lock.
/// Thread: Get, Set, comparing, copying and streaming may run on several threads at once.
template <class T>
class VEXA_EXPORT TypedValue : public ConfigValue {
  public:
    ~TypedValue() override;

    /// A copy of the value.
    void Get(T& value) VEXA_EXCLUDES(m_lock);
    /// A different value marks the object dirty.
    void Set(T value) VEXA_EXCLUDES(m_lock);

    /// As of ConfigValue, and of the values.
    bool IsEqual(Serializable* other) override;
    /// The value comes behind the identity.
    bool Serialize(Serializer* serializer) override;
    /// @return false when the stream ends before the value, which is neutral then.
    bool Deserialize(DeSerializer* deserializer) override;
    /// Of another T only the configuration ID is taken.
    void Copy(ConfigValue& other) override;
    /// Of another T nothing is taken.
    void CopyValue(ConfigValue& other) override;

  protected:
    /// @param fieldName  of the value in a stream.
    explicit TypedValue(const char* fieldName);
    TypedValue(const char* fieldName, eClassID_t classID, eConfigID_t configID, eParam_t paramID,
               eParamType_t type, T value);

  private:
    const char* const m_fieldName;
    LockSemaphore m_lock;
    T m_value VEXA_GUARDED_BY(m_lock){};
};

/// A 32-bit unsigned value.
class VEXA_EXPORT IntegerValue : public TypedValue<unsigned int> {
  public:
    /// For the class factory; filled by Deserialize.
    IntegerValue();
    IntegerValue(eConfigID_t configID, eParam_t paramID, eParamType_t type, unsigned int value);
    /// A new object that the caller owns.
    static IntegerValue* Create(eConfigID_t configID, eParam_t paramID, eParamType_t type,
                                unsigned int value);
    static IntegerValue* Create(eParam_t paramID, eParamType_t type, unsigned int value);

    ConfigValue* Clone() override;
    void ResetToFactory() override;
    std::string ToString() override;
};

/// A text, or any bytes: data and alarm parameters use it too. A stream ends texts with a NUL, so the reader
/// of a value with an embedded NUL gets the part before it.
class VEXA_EXPORT StringValue : public TypedValue<std::string> {
  public:
    /// For the class factory; filled by Deserialize.
    StringValue();
    StringValue(eConfigID_t configID, eParam_t paramID, eParamType_t type, std::string value);
    /// A new object that the caller owns.
    static StringValue* Create(eConfigID_t configID, eParam_t paramID, eParamType_t type, std::string value);
    static StringValue* Create(eParam_t paramID, eParamType_t type, std::string value);

    ConfigValue* Clone() override;
    void ResetToFactory() override;
    std::string ToString() override;
};
