#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 35: control by another machine.
void CreateGroup_35()
{
    if (CProductFeatures::hasRS422()) {
        Register(Enum(PARAM_ID(RS422Remote), "RS-422 Remote", "RS422")
                     .Default(2)
                     .Values({{0, "Local"}, {1, "Remote"}, {2, "Remote and Local"}})
                     .Description("Whether the transport obeys the front panel, the RS-422 port or both."));
        Register(Enum(PARAM_ID(RemoteControlProtocol), "Remote Control Protocol", "Protocol")
                     .Values({{0, "9-Pin VTR"}, {1, "VDCP"}})
                     .DisabledBy(eParamID_RS422Remote, 0)
                     .Description("Protocol that is spoken on the RS-422 port."));
    }
    // The store reads it on every model.
    Register(Enum(PARAM_ID(GangEnable), "Gang Enable", "Gang")
                 .Values(OffOn())
                 .HiddenUnless(CProductFeatures::canDoGang())
                 .Description("Makes several units record and play together."));
    if (CProductFeatures::canDoGang()) {
        Register(Enum(PARAM_ID(GangMaster), "Gang Master", "GangMstr")
                     .Values({{0, "Follower"}, {1, "Master"}})
                     .EnabledBy(eParamID_GangEnable, 1)
                     .Description("Whether this unit leads the gang or follows."));
    }
    if (CProductFeatures::hasRS422()) {
        Register(Integer(PARAM_ID(RS422ID), "RS-422 Device ID", "RS422 ID")
                     .Range(0, 0xffff)
                     .DisabledBy(eParamID_RS422Remote, 0)
                     .Description("Device type that controllers are told; 0 tells them the unit's own."));
    }
}

}  // namespace vexa::config::catalogue
