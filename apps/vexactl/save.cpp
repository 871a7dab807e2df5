#include "vexactl/save.h"

#include "vexactl/files.h"
#include "vexactl/settings_file.h"

namespace {

/// What the device has a value for.
SettingValues ValuesOf(Session& session, vexa::Device& device, bool withSecrets)
{
    std::vector<Parameter> settings;
    for (const auto& [id, descriptor] : session.Parameters().All())
        if (const Parameter parameter(descriptor);
            vexa::IsSetting(*descriptor) && (withSecrets || !parameter.IsSecret()))
            settings.push_back(parameter);
    const auto results = session.Read(device, settings);
    SettingValues values;
    for (size_t i = 0; i < settings.size(); ++i) {
        if (results[i].value)
            values.emplace_back(settings[i], *results[i].value);
        else
            session.Note(settings[i].Name() + " is not saved: " + results[i].reason);
    }
    return values;
}

/// As it is printed on the unit, else the bare number.
std::string SerialOf(const Session& session, vexa::Device& device)
{
    for (const eParam_t id : {eParamID_FormattedSerialNumber, eParamID_SerialNumber}) {
        ParamDescriptor* const descriptor = session.Parameters().Find(id);
        const auto value = descriptor ? device.Kept(id).value : std::nullopt;
        std::string text = value ? vexa::Format(*descriptor, *value) : "";
        if (!text.empty()) return text;
    }
    return "";
}

ExitStatus PrintForPrograms(Session& session, const Identity& device, const SettingValues& values)
{
    session.Print(Json{{"model", device.model}, {"serial", device.serial}, {"software", device.software}});
    for (const auto& [parameter, value] : values) session.Print(parameter.ToJson(value));
    return ExitStatus::kDone;
}

ExitStatus WriteTo(Session& session, const SaveOptions& options, const std::string& text, size_t count)
{
    if (const std::string reason = WriteNewFile(options.file, text, options.secrets); !reason.empty())
        return session.Fail(ExitStatus::kFalse, "cannot write " + Quoted(options.file) + ": " + reason);
    if (session.json)
        session.Print(Json{{"file", options.file}, {"settings", count}});
    else
        session.Print(options.file + ": " + std::to_string(count) + " settings saved");
    return ExitStatus::kDone;
}

}  // namespace

ExitStatus Save(Session& session, const SaveOptions& options)
{
    if (session.isOneOfMany)
        return session.Fail(ExitStatus::kUsage, "save takes one device: a file holds the settings of one");
    vexa::Device& device = *session.Connect();
    const SettingValues values = ValuesOf(session, device, options.secrets);
    const vexa::DeviceStatus status = device.Status();
    const Identity identity{status.model, SerialOf(session, device), status.software};
    if (options.file.empty() && session.json) return PrintForPrograms(session, identity, values);
    const std::string text = SettingsText(identity, values);
    if (!options.file.empty()) return WriteTo(session, options, text, values.size());
    session.PrintExactly(text.substr(0, text.size() - 1));
    return ExitStatus::kDone;
}
