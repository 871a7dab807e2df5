/// EnumDescriptor: a number with named values.
#pragma once

#include "config/base/export.h"
#include "config/descriptors/enum_value_descriptor.h"
#include "config/descriptors/integer_descriptor.h"

/// The range and default of the base keep their meaning for the number. Ownership and threads as in
/// ParamDescriptor.
class VEXA_EXPORT EnumDescriptor : public IntegerDescriptor {
  public:
    /// The attributes and class names of one value.
    using EnumValueData = EnumValueDescriptor::EnumValueData;

    /// The values by number.
    virtual std::map<unsigned int, EnumValueDescriptor> GetEnumValueDescriptors() { return m_values; }
    /// The values in order of addition: the order of menus.
    virtual std::vector<EnumValueDescriptor> GetOrderedEnumValueDescriptors();
    /// A copy of one value; a default EnumValueDescriptor when there is none.
    virtual EnumValueDescriptor GetEnumValueDescriptor(unsigned int value);
    /// Replaces the values and leaves the order of addition as it was.
    virtual void SetEnumValueDescriptors(std::map<unsigned int, EnumValueDescriptor> values)
    {
        m_values = std::move(values);
    }
    /// Adds a value whose short name is its name.
    /// @param data  copied; may be null.
    virtual void AddNameValuePair(unsigned int value, std::string name, EnumValueData* data, std::string info)
    {
        AddNameValuePair(value, name, name, data, std::move(info));
    }
    /// Adds or replaces a value. A value that is added twice stands twice in the order.
    virtual void AddNameValuePair(unsigned int value, std::string name, std::string shortName,
                                  EnumValueData* data, std::string info);
    /// The value's name; "0x1f" when there is none.
    virtual std::string GetEnumValue(unsigned int value);

    /// Whether the value is in the table; spares validators the copy of the whole table. So a derived class that
    /// overrides GetEnumValueDescriptors is not asked: it sets its values instead.
    bool HasEnumValue(unsigned int value) const { return m_values.contains(value); }

  private:
    std::map<unsigned int, EnumValueDescriptor> m_values;
    std::vector<unsigned int> m_order;
};
