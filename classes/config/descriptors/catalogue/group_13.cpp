#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 13: camera, time code connector and look-up table.
void CreateGroup_13()
{
    if (CProductFeatures::hasCameraData()) {
        Register(Enum(PARAM_ID(UseCameraData), "Use Camera Data", "Cam Data")
                     .Values(OffOn())
                     .Description("Takes clip names and record triggers from the camera in the SDI signal."));
    }
    if (CProductFeatures::canDoTimecode()) {
        Register(Enum(PARAM_ID(LTCConnector), "LTC Connector", "LTC Conn")
                     .Values({{0, "Input"}, {1, "Output"}})
                     .Description("Direction of the linear time code connector."));
    }
    if (CProductFeatures::hasLut()) {
        Register(Enum(PARAM_ID(LUT_Enable), "LUT Enable", "LUT")
                     .Values({{0, "Off"}, {1, "Monitor Only"}, {2, "Monitor and Record"}})
                     .Description("Outputs and recordings to which the look-up table is applied."));
        Register(String(PARAM_ID(LUT_File), "LUT File", "LUT File")
                     .Length(0, 64)
                     .DisabledBy(eParamID_LUT_Enable, 0)
                     .Description("Name of the look-up table file in use."));
    }
}

}  // namespace vexa::config::catalogue
