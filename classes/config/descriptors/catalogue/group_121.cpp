#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"
#include "services/product/product_id.h"

namespace vexa::config::catalogue {

namespace {

ValueList NoFormat(const char* reason)
{
    return {{0, reason}, {255, "Unknown"}};
}

/// A clip may have a rate that the unit plays but cannot record, so a raster is listed with all its rates.
void CreateMediaFormat()
{
    const bool uhd = CProductFeatures::canDoUHD();
    Register(Enum(PARAM_ID(DetectMediaFormat), "Detected Media Format", "Clip Fmt")
                 .Feature(eFeature_1)
                 .Status()
                 .Values(NoFormat("No Clip"))
                 .Values(FormatsSDAndHD())
                 .ValuesIf(uhd, Formats1080pExtraHighRate())
                 .ValuesIf(uhd || CProductID::isMAPLE(), Formats2K())
                 .ValuesIf(uhd, Formats2160p())
                 .ValuesIf(uhd, Formats2160pHighRate())
                 .ValuesIf(uhd, Formats4K())
                 .ValuesIf(uhd, Formats4KHighRate())
                 .Description("Format of the clip that is selected for playback."));
}

void CreateInputFormat()
{
    const bool uhd = CProductFeatures::canDoUHD(), sdi12G = CProductFeatures::has12G();
    Register(Enum(PARAM_ID(DetectInputFormat), "Detected Input Format", "In Fmt")
                 .Feature(eFeature_1)
                 .Status()
                 .Values(NoFormat("No Signal"))
                 .Values(FormatsSDAndHD())
                 .ValuesIf(uhd, Formats1080pExtraHighRate())
                 .ValuesIf(uhd || CProductID::isMAPLE(), Formats2K())
                 .ValuesIf(uhd, Formats2160p())
                 .ValuesIf(sdi12G, Formats2160pHighRate())
                 .ValuesIf(uhd, Formats4K())
                 .ValuesIf(sdi12G, Formats4KHighRate())
                 .Description("Format of the signal at the selected video input."));
}

}  // namespace

/// Group 121: formats that the unit has found.
void CreateGroup_121()
{
    CreateInputFormat();
    if (CProductFeatures::hasMedia()) CreateMediaFormat();
}

}  // namespace vexa::config::catalogue
