#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 127: for the web application.
void CreateGroup_127()
{
    if (CProductFeatures::canDoGang()) {
        Register(String(PARAM_ID(GangList), "Gang List", "GangList")
                     .NotInRegisters()
                     .Length(0, 1024)
                     .ClassName("panel_hidden")
                     .Description("Addresses of the units in the gang, separated by commas."));
    }
    if (CProductFeatures::hasFrontPanel()) {
        Register(Enum(PARAM_ID(CapturePanelImage), "Capture Panel Image", "Cap Img")
                     .Command()
                     .Values({{0, "Idle"}, {1, "Capture"}})
                     .ClassName("panel_hidden")
                     .Description("Saves a picture of the front panel display for the web application."));
    }
}

}  // namespace vexa::config::catalogue
