#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"
#include "services/product/product_id.h"

namespace vexa::config::catalogue {

/// Group 41: the format of the built-in signal generator, which is the output's format without input and
/// clip.
void CreateGroup_41()
{
    constexpr const char* kDescription =
        "Format of the test picture on the output while there is nothing else to show.";
    if (CProductFeatures::has12G()) {
        Register(Enum(PARAM_ID(VideoSGFormat), "Signal Generator Format", "SG Fmt")
                     .Values(FormatsSDAndHD())
                     .Values(Formats2160p())
                     .Values(Formats2160pHighRate())
                     .Values(Formats4K())
                     .Values(Formats4KHighRate())
                     .Default(kFormat1080i5994)
                     .Description(kDescription));
    } else if (CProductFeatures::canDoUHD()) {
        Register(Enum(PARAM_ID(VideoSGFormat), "Signal Generator Format", "SG Fmt")
                     .Values(FormatsSDAndHD())
                     .Values(Formats2160p())
                     .Values(Formats4K())
                     .Default(kFormat1080i5994)
                     .Description(kDescription));
    } else if (CProductID::isMAPLE()) {
        Register(Enum(PARAM_ID(VideoSGFormat), "Signal Generator Format", "SG Fmt")
                     .Values(FormatsSDAndHD())
                     .Default(kFormat1080p2398)
                     .Description(kDescription));
    } else {
        Register(Enum(PARAM_ID(VideoSGFormat), "Signal Generator Format", "SG Fmt")
                     .Values(FormatsSDAndHD())
                     .Default(kFormat1080i5994)
                     .Description(kDescription));
    }
    if (CProductFeatures::isMultiChannel()) {
        Register(Enum(PARAM_ID(VideoSGFormat_Single), "Signal Generator Format Single Channel", "SG Sngl")
                     .Values(FormatsSDAndHD())
                     .ValuesIf(CProductFeatures::canDoUHD(), Formats2160p())
                     .ValuesIf(CProductFeatures::canDoUHD(), Formats2160pHighRate())
                     .Default(kFormat1080i5994)
                     .EnabledBy(eParamID_RecordType, 0)
                     .Description("Format of the test picture while one channel is in use."));
    }
}

}  // namespace vexa::config::catalogue
