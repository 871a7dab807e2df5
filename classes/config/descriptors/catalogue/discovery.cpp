#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"

namespace vexa::config::catalogue {

/// Group 52: how other devices find this one.
void CreateGroup_Discovery()
{
    Register(Enum(PARAM_ID(SSDP_Enable_Host), "SSDP Host Enable", "SSDP Hst")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Default(1)
                 .Values(OffOn())
                 .ClassName("panel_hidden")
                 .Description("Announces the unit in the local network."));
    Register(Enum(PARAM_ID(SSDP_Enable_Proxy), "SSDP Proxy Enable", "SSDP Prx")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Values(OffOn())
                 .ClassName("panel_hidden")
                 .Description("Passes on announcements of other units that cannot be heard everywhere."));
}

}  // namespace vexa::config::catalogue
