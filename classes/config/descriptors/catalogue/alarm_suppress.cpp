#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Alarms that users can turn off: the lasting setting in group 60, and in group 126 the one that ends with
/// the power. Both have one symbolic name; a look-up by name finds the setting.
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
