#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 22: names and captions of recorded files.
void CreateGroup_22()
{
    if (CProductFeatures::canDoGang()) {
        Register(Enum(PARAM_ID(UseGangClipName), "Use Gang Clip Name", "GangName")
                     .Values(OffOn())
                     .EnabledBy(eParamID_GangEnable, 1)
                     .Description("Names clips as the master of the gang does."));
    }
    if (CProductFeatures::hasMedia()) {
        Register(Enum(PARAM_ID(CaptionsEnabled), "Closed Captions", "Captions")
                     .Default(1)
                     .Values(OffOn())
                     .Description("Records closed captions and puts them back into the SDI output."));
    }
}

/// Group 32: the outputs without an input.
void CreateGroup_32()
{
    Register(Enum(PARAM_ID(LossOfVideo), "Loss of Video", "Vid Loss")
                 .Values({{0, "Black"}, {1, "Freeze"}, {2, "Color Bars"}})
                 .ValuesIf(CProductFeatures::hasMedia(), {{3, "Stop Recording"}})
                 .Description("What happens when the video input disappears."));
}

}  // namespace vexa::config::catalogue
