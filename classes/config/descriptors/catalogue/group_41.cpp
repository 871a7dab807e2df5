#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"
#include "services/product/product_id.h"

namespace vexa::config::catalogue {

/// Group 41: the format of the built-in signal generator, which is the output's format without input and
/// clip.
void CreateGroup_41()
{
    const bool uhd = CProductFeatures::canDoUHD(), sdi12G = CProductFeatures::has12G();
    Register(Enum(PARAM_ID(VideoSGFormat), "Signal Generator Format", "SG Fmt")
                 .Default(CProductID::isMAPLE() ? kFormat1080p2398 : kFormat1080i5994)
                 .Values(FormatsSDAndHD())
                 .ValuesIf(uhd, Formats2160p())
                 .ValuesIf(sdi12G, Formats2160pHighRate())
                 .ValuesIf(uhd, Formats4K())
                 .ValuesIf(sdi12G, Formats4KHighRate())
                 .EnabledByIf(CProductFeatures::isMultiChannel(), eParamID_RecordType, 1)
                 .Description(
                     CProductFeatures::isMultiChannel()
                         ? "Format of the test picture on each output while several channels are in use."
                         : "Format of the test picture on the output while there is nothing else to show."));
    if (CProductFeatures::isMultiChannel()) {
        Register(Enum(PARAM_ID(VideoSGFormat_Single), "Signal Generator Format Single Channel", "SG Sngl")
                     .Default(kFormat1080i5994)
                     .Values(FormatsSDAndHD())
                     .ValuesIf(uhd, Formats2160p())
                     .ValuesIf(uhd, Formats2160pHighRate())
                     .EnabledBy(eParamID_RecordType, 0)
                     .Description("Format of the test picture while one channel is in use."));
    }
}

}  // namespace vexa::config::catalogue
