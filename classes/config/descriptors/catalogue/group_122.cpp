#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 122: messages to the user while the unit is busy.
void CreateGroup_122()
{
    Register(Integer(PARAM_ID(Progress), "Progress", "Progress")
                 .Feature(eFeature_1)
                 .Status()
                 .Range(0, 100)
                 .Units("%")
                 .Description("How far the present job, such as formatting, has come."));
    if (CProductFeatures::hasFrontPanel()) {
        Register(
            String(PARAM_ID(DisplayMessage), "Display Message", "Message")
                .Feature(eFeature_1)
                .Command()
                .Length(0, 80)
                .ClassName("volatile")
                .Description("Text that the front panel shows until the next key press; empty removes it."));
    }
}

}  // namespace vexa::config::catalogue
