#include "config/config.h"
#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"

namespace vexa::config::catalogue {

namespace {

constexpr unsigned int kIdle = 0, kRestore = 1, kRestoreWithNetwork = 2;

bool SetToDefault(Config& config, ParamDescriptor& descriptor)
{
    if (auto* const number = dynamic_cast<IntegerDescriptor*>(&descriptor))
        return config.Set(descriptor.GetParamID(), number->GetFactoryDefault());
    if (auto* const text = dynamic_cast<StringDescriptor*>(&descriptor))
        return config.Set(descriptor.GetParamID(), text->GetFactoryDefault());
    return false;
}

/// Does what the parameter's value asks for and puts the parameter back to "Idle".
/// @return true when every parameter of the reset has its default.
bool RestoreFactorySettings(Config* config, ParamDescriptor* command)
{
    if (!config || !command) return false;
    const unsigned int request = config->Get(command->GetParamID());
    if (request != kRestore && request != kRestoreWithNetwork) return false;

    bool restored = true;
    for (const eParam_t id : config->GetParamIDs()) {
        ParamDescriptor* const descriptor = config->GetParamDescriptor(id);
        if (!descriptor) continue;
        const eFactoryReset_t reset = descriptor->GetFactoryResetType();
        const bool takesPart = reset == eFactoryReset_Include ||
                               (reset == eFactoryReset_Network && request == kRestoreWithNetwork);
        if (takesPart) restored = SetToDefault(*config, *descriptor) && restored;
    }
    return config->Set(command->GetParamID(), kIdle) && restored;
}

}  // namespace

/// Group 99: factory settings. Front ends set the value and then run the action.
void CreateGroup_99()
{
    Register(Enum(PARAM_ID(FactorySettings), "Factory Settings", "Factory")
                 .Command()
                 .Values({{kIdle, "Idle"},
                          {kRestore, "Restore"},
                          {kRestoreWithNetwork, "Restore with Network", "RstorNet"}})
                 .ClassName("action_param")
                 .ClassName("config")
                 .Action(RestoreFactorySettings)
                 .Description("Sets all parameters to their factory defaults, with or without the network."));
}

/// Group 100: the board.
void CreateGroup_100()
{
    Register(String(PARAM_ID(BoardID), "Board ID", "Board ID")
                 .Status()
                 .Length(0, 8)
                 .ClassName("panel_hidden")
                 .Description("Identifier of the main board, in hexadecimal."));
}

}  // namespace vexa::config::catalogue
