/// Descriptors of numbers.
#pragma once

#include "config/base/export.h"
#include "config/descriptors/param_descriptor.h"

/// A 32-bit unsigned number: range, default and how to show it. Ownership and threads as in ParamDescriptor.
class VEXA_EXPORT IntegerDescriptor : public ParamDescriptor {
  public:
    /// A minimum above the maximum is legal and admits min .. min + max.
    virtual unsigned int GetMinValue() { return m_minValue; }
    virtual void SetMinValue(unsigned int value) { m_minValue = value; }
    /// The greatest stored value.
    virtual unsigned int GetMaxValue() { return m_maxValue; }
    virtual void SetMaxValue(unsigned int value) { m_maxValue = value; }
    /// The value before anybody sets one, and after a factory reset.
    virtual unsigned int GetFactoryDefault() { return m_factoryDefault; }
    virtual void SetFactoryDefault(unsigned int value) { m_factoryDefault = value; }
    /// The step of one increment.
    virtual unsigned int GetAdjustBy() { return m_adjustBy; }
    virtual void SetAdjustBy(unsigned int value) { m_adjustBy = value; }
    /// Shown value = stored value / scaleBy + offsetBy, with displayPrecision decimals.
    virtual unsigned int GetScaleBy() { return m_scaleBy; }
    virtual void SetScaleBy(unsigned int value) { m_scaleBy = value; }
    /// See GetScaleBy.
    virtual unsigned int GetOffsetBy() { return m_offsetBy; }
    virtual void SetOffsetBy(unsigned int value) { m_offsetBy = value; }
    /// See GetScaleBy.
    virtual unsigned int GetDisplayPrecision() { return m_displayPrecision; }
    virtual void SetDisplayPrecision(unsigned int value) { m_displayPrecision = value; }
    /// The unit label, "dB"; a second one for displays that show two.
    virtual std::string GetUnits() { return m_units; }
    virtual void SetUnits(std::string units) { m_units = std::move(units); }
    /// A second unit label, for displays that show two.
    virtual std::string GetUnits2() { return m_units2; }
    virtual void SetUnits2(std::string units) { m_units2 = std::move(units); }

  private:
    unsigned int m_minValue = 0, m_maxValue = 0, m_factoryDefault = 0;  // every creator sets all three
    unsigned int m_adjustBy = 1, m_scaleBy = 1, m_offsetBy = 0, m_displayPrecision = 0;
    std::string m_units, m_units2;
};

/// An IntegerDescriptor with a precision of its own.
class VEXA_EXPORT DecimalDescriptor : public IntegerDescriptor {
  public:
    /// Decimals of the number itself, beside those of its display.
    virtual unsigned int GetPrecision() { return m_precision; }
    virtual void SetPrecision(unsigned int value) { m_precision = value; }

  private:
    unsigned int m_precision = 0;
};
