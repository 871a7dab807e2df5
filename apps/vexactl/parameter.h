/// A parameter as the tool names and shows it.
#pragma once

#include <optional>
#include <string>

#include "config/descriptors/param_descriptor.h"
#include "device/catalogue.h"
#include "device/format.h"
#include "messages/alarm.pb.h"
#include "vexactl/output.h"

using vexa::Value;

/// A parameter of one catalogue. Borrows its descriptor. Thread: any.
class Parameter {
  public:
    explicit Parameter(ParamDescriptor* descriptor) : m_descriptor(descriptor) {}

    eParam_t Id() const { return m_descriptor->GetParamID(); }
    std::string IdText() const;
    std::string Name() const { return vexa::Catalogue::NameOf(*m_descriptor); }
    /// "int", "enum", "str", "data" or "alarm".
    const char* Kind() const { return vexa::KindOf(*m_descriptor); }
    bool IsAlarm() const;
    bool HoldsBytes() const { return vexa::HoldsBytes(*m_descriptor); }
    /// Whether its value is shown as ********.
    bool IsHidden() const { return IsSecret() && !showsSecrets; }
    bool IsSecret() const { return m_descriptor->HasClassName("password"); }
    ParamDescriptor& Descriptor() const { return *m_descriptor; }
    std::string Units() const;

    /// For people: "4 eSystemStateRunning", "12.50 V", "\"Scene 12\"".
    std::string Text(const Value& value) const;
    /// The value alone, for scripts: "50" of "50 %", and the name of an enumerated value; what set takes.
    std::string Bare(const Value& value) const;
    /// For programs: "id", "param", "value", and "name", "text" or "units" where they say more.
    Json ToJson(const Value& value) const;
    /// What a person has typed, or how it is hidden.
    std::string Typed(const std::string& typed) const;

    /// Whether passwords are shown. Set before there are other threads.
    inline static bool showsSecrets = false;

  private:
    bool IsRead(const std::string& text, const Value& value) const;

    ParamDescriptor* m_descriptor;
};

/// "INFORMATION", "WARNING", ...; the number of a severity that this version does not know.
std::string SeverityName(vexa::alarms::Alarm_Severity severity);
/// "did you mean FanSpeed or FanMode?" of a name that is unknown; empty when none is like it.
std::string DidYouMean(const vexa::Catalogue& catalogue, const std::string& name);
/// The text, filled with blanks up to a width.
std::string Padded(std::string text, size_t width);
