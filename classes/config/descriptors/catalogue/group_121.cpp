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

void CreateInputFormat()
{
    constexpr const char* kDescription = "Format of the signal at the selected video input.";
    if (CProductFeatures::has12G()) {
        Register(Enum(PARAM_ID(DetectInputFormat), "Detected Input Format", "In Fmt")
                     .Feature(eFeature_1)
                     .Values(NoFormat("No Signal"))
                     .Values(FormatsSDAndHD())
                     .Values(Formats1080pExtraHighRate())
                     .Values(Formats2K())
                     .Values(Formats2160p())
                     .Values(Formats2160pHighRate())
                     .Values(Formats4K())
                     .Values(Formats4KHighRate())
                     .Status()
                     .Description(kDescription));
    } else if (CProductFeatures::canDoUHD()) {
        Register(Enum(PARAM_ID(DetectInputFormat), "Detected Input Format", "In Fmt")
                     .Feature(eFeature_1)
                     .Values(NoFormat("No Signal"))
                     .Values(FormatsSDAndHD())
                     .Values(Formats1080pExtraHighRate())
                     .Values(Formats2K())
                     .Values(Formats2160p())
                     .Values(Formats4K())
                     .Status()
                     .Description(kDescription));
    } else if (CProductID::isMAPLE()) {
        Register(Enum(PARAM_ID(DetectInputFormat), "Detected Input Format", "In Fmt")
                     .Feature(eFeature_1)
                     .Values(NoFormat("No Signal"))
                     .Values(FormatsSDAndHD())
                     .Values(Formats2K())
                     .Status()
                     .Description(kDescription));
    } else {
        Register(Enum(PARAM_ID(DetectInputFormat), "Detected Input Format", "In Fmt")
                     .Feature(eFeature_1)
                     .Values(NoFormat("No Signal"))
                     .Values(FormatsSDAndHD())
                     .Status()
                     .Description(kDescription));
    }
}

/// A clip may be in a format that the unit plays but cannot record.
void CreateMediaFormat()
{
    constexpr const char* kDescription = "Format of the clip that is selected for playback.";
    if (CProductFeatures::canDoUHD()) {
        Register(Enum(PARAM_ID(DetectMediaFormat), "Detected Media Format", "Clip Fmt")
                     .Feature(eFeature_1)
                     .Values(NoFormat("No Clip"))
                     .Values(FormatsSDAndHD())
                     .Values(Formats1080pExtraHighRate())
                     .Values(Formats2K())
                     .Values(Formats2160p())
                     .Values(Formats2160pHighRate())
                     .Values(Formats4K())
                     .Values(Formats4KHighRate())
                     .Status()
                     .Description(kDescription));
    } else if (CProductID::isMAPLE()) {
        Register(Enum(PARAM_ID(DetectMediaFormat), "Detected Media Format", "Clip Fmt")
                     .Feature(eFeature_1)
                     .Values(NoFormat("No Clip"))
                     .Values(FormatsSDAndHD())
                     .Values(Formats2K())
                     .Status()
                     .Description(kDescription));
    } else {
        Register(Enum(PARAM_ID(DetectMediaFormat), "Detected Media Format", "Clip Fmt")
                     .Feature(eFeature_1)
                     .Values(NoFormat("No Clip"))
                     .Values(FormatsSDAndHD())
                     .Status()
                     .Description(kDescription));
    }
}

}  // namespace

/// Group 121: formats that the unit has found.
void CreateGroup_121()
{
    CreateInputFormat();
    if (CProductFeatures::hasMedia()) CreateMediaFormat();
}

}  // namespace vexa::config::catalogue
