#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 12: condition of the media, and continuing on the other slot.
void CreateGroup_12()
{
    if (!CProductFeatures::hasMedia()) return;

    Register(Enum(PARAM_ID(MediaState), "Media State", "Media")
                 .Feature(eFeature_1)
                 .Status()
                 .Values(MediaStates())
                 .Dependent(eParamID_CurrentFileSystem)
                 .Description("Condition of the media in the selected slot."));
    Register(Enum(PARAM_ID(MediaStateDebounced), "Media State Debounced", "MediaDeb")
                 .Internal()
                 .Values(MediaStates())
                 .Description("Condition of the media, after it has stayed the same for half a second."));
    if (CProductFeatures::canDoRollover()) {
        Register(Enum(PARAM_ID(Rollover), "Rollover", "Rollover")
                     .Values(OffOn())
                     .Description("Continues recording on the other slot when the media is full."));
    }
    Register(Integer(PARAM_ID(RecordMinutesMax), "Record Minutes Max", "Rec Max")
                 .Range(0, 1440)
                 .Units("min")
                 .Suffixes("minute", "minutes")
                 .Description("Length at which a recording ends; 0 records until the media is full."));
    if (CProductFeatures::canDoRollover()) {
        Register(Enum(PARAM_ID(Rollover_Init), "Rollover Start", "Roll Ini")
                     .Values({{0, "Selected Slot"}, {1, "Slot 1"}, {2, "Slot 2"}})
                     .EnabledBy(eParamID_Rollover, 1)
                     .Description("Slot on which a recording with rollover begins."));
        Register(Enum(PARAM_ID(Rollover_Media), "Rollover Media", "Roll Med")
                     .Values({{0, "Any"}, {1, "Empty Only"}})
                     .EnabledBy(eParamID_Rollover, 1)
                     .Description("Media on which a recording may continue."));
        Register(Enum(PARAM_ID(Rollover_Continuous), "Rollover Continuous", "Roll Cnt")
                     .Values(OffOn())
                     .EnabledBy(eParamID_Rollover, 1)
                     .Description("Goes back to the first slot as often as it holds new media."));
    }
}

}  // namespace vexa::config::catalogue
