#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 4: analogue audio.
void CreateGroup_4()
{
    if (!CProductFeatures::hasAnalogInputs()) return;

    Register(Enum(PARAM_ID(AnalogAudioStandard), "Analog Audio Standard", "AnaAudio")
                 .Default(3)
                 .Values({{0, "+12 dBu"}, {1, "+15 dBu"}, {2, "+18 dBu"}, {3, "+24 dBu"}})
                 .Description("Analog audio level that corresponds to digital full scale."));
}

/// Group 6: reference.
void CreateGroup_6()
{
    if (!CProductFeatures::hasGenlock()) return;

    Register(Enum(PARAM_ID(GenLock), "Genlock Source", "Genlock")
                 .Values({{0, "Reference"}, {1, "Video Input"}, {2, "Free Run"}})
                 .Description("Signal that the video outputs are locked to."));
}

}  // namespace vexa::config::catalogue
