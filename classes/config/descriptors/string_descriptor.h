/// Descriptors of texts, opaque data and alarms.
#pragma once

#include "config/base/export.h"
#include "config/descriptors/param_descriptor.h"

/// A text. The limits are for front ends; the store does not enforce them. Ownership and threads as in
/// ParamDescriptor.
class VEXA_EXPORT StringDescriptor : public ParamDescriptor {
  public:
    /// Only eCParam_StringValue is accepted; anything else is a mistake in the catalogue and ends the process
    /// with exit status -1 after a message, so that it is seen at start-up.
    void SetParamType(eParamType_t type) override;

    /// Length limits in bytes.
    virtual unsigned int GetMinLength() { return m_minLength; }
    virtual void SetMinLength(unsigned int value) { m_minLength = value; }
    /// See GetMinLength.
    virtual unsigned int GetMaxLength() { return m_maxLength; }
    virtual void SetMaxLength(unsigned int value) { m_maxLength = value; }
    /// Limits of a character's position, for panels that edit character by character.
    virtual unsigned int GetMinIndex() { return m_minIndex; }
    virtual void SetMinIndex(unsigned int value) { m_minIndex = value; }
    /// See GetMinIndex.
    virtual unsigned int GetMaxIndex() { return m_maxIndex; }
    virtual void SetMaxIndex(unsigned int value) { m_maxIndex = value; }
    /// The text before anybody sets one, and after a factory reset.
    virtual std::string GetFactoryDefault() { return m_factoryDefault; }
    virtual void SetFactoryDefault(std::string value) { m_factoryDefault = std::move(value); }

  private:
    unsigned int m_minLength = 0, m_maxLength = 20, m_minIndex = 0, m_maxIndex = 19;
    std::string m_factoryDefault;
};

/// Opaque bytes, held in a string.
class VEXA_EXPORT DataDescriptor : public StringDescriptor {};

/// An alarm: its value is a serialized alarm message. Alarm components find it by the class name "alarm".
class VEXA_EXPORT AlarmDescriptor : public StringDescriptor {
  public:
    AlarmDescriptor() { AddClassName("alarm"); }
};
