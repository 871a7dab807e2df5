#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Alarms that users can turn off: the persistent setting in group 60, and in group 126 one that ends at the next
/// restart. Both have the same symbolic name; a look-up by name finds the setting in group 60.
void CreateGroup_AlarmSuppress()
{
    if (!CProductFeatures::has2ndPS()) return;

    Register(Enum(PARAM_ID(SuppressPSAlarm), "Suppress PS Alarm", "Supp PS")
                 .Values(OffOn())
                 .ClassName("alarm_suppress")
                 .Description("Turns the alarms of the two power supplies off, for units that run on one."));
    Register(
        Enum(eParamID_SuppressPSAlarm_126, "eParamID_SuppressPSAlarm", "Suppress PS Alarm Now", "Supp Now")
            .Command()
            .Values(OffOn())
            .ClassName("alarm_suppress")
            .ClassName("panel_hidden")
            .Description("Turns the alarms of the two power supplies off until the unit restarts."));
}

}  // namespace vexa::config::catalogue
