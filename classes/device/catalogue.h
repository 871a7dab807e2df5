/// Catalogue: the parameters of one model.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/base/export.h"
#include "config/descriptors/descriptor_table.h"

namespace vexa {

/// Any number of models side by side, in one process; the registry of the process (descriptor_table.h) stays
/// what it is. Read-only. Thread: any.
class VEXA_EXPORT Catalogue {
  public:
    /// Of a model: "OAK"; of one without a name for "". Built once, and kept for the life of the process.
    /// @return null for a model that is not in the family. Throws std::bad_alloc.
    static std::shared_ptr<const Catalogue> Of(const std::string& model);
    /// The model of a value of eParamID_ProductID; nothing for a number that no model has.
    static std::optional<std::string> ModelOf(unsigned int productID);

    Catalogue(const Catalogue&) = delete;
    Catalogue& operator=(const Catalogue&) = delete;
    ~Catalogue();

    /// "OAK"; empty for one without a name.
    const std::string& Model() const { return m_model; }
    /// Null for an unknown one. The descriptors live as long as the catalogue.
    ParamDescriptor* Find(eParam_t id) const { return FindIn(m_table, id); }
    /// By symbolic name, with or without "eParamID_", in upper or lower case, or by "0x5c010000".
    ParamDescriptor* Find(std::string_view name) const;
    /// Ascending by identifier.
    const DescriptorTable& All() const { return m_table; }
    /// The known names that are most like one that is unknown: what may have been meant. At most three.
    std::vector<std::string> Similar(std::string_view name) const;

    /// The symbolic name without its prefix: "FanSpeed".
    static std::string NameOf(ParamDescriptor& descriptor);

  private:
    explicit Catalogue(std::string model) : m_model(std::move(model)) {}

    const std::string m_model;
    DescriptorTable m_table;
    std::map<std::string, ParamDescriptor*, std::less<>> m_byName;
};

/// Whether a parameter is a setting: kept by the device and set by users. Commands, status values, alarms and the
/// device's own notes, which no front end shows and no reset concerns, are none. Thread: any.
VEXA_EXPORT bool IsSetting(ParamDescriptor& descriptor);

/// The descriptors in the order in which to set their values: each behind those that have a say in whether its value is
/// taken, or has an effect (all relations, and "dependent_minimum"), and otherwise as they come. Circles are cut.
/// Thread: any.
VEXA_EXPORT std::vector<ParamDescriptor*> InSettingOrder(const std::vector<ParamDescriptor*>& descriptors);

}  // namespace vexa
