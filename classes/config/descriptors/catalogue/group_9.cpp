#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 9: interval recording, on recorders with one channel.
void CreateGroup_9()
{
    if (!CProductFeatures::canDoInterval()) return;

    Register(Enum(PARAM_ID(IntervalRecord), "Interval Record", "Intv Rec")
                 .Values(OffOn())
                 .Description("Records a few frames at regular intervals for time lapse."));
    Register(Integer(PARAM_ID(IntervalFrames), "Interval Frames", "Intv Frm")
                 .Range(1, 300)
                 .Default(1)
                 .Units("frames")
                 .EnabledBy(eParamID_IntervalRecord, 1)
                 .Suffixes("frame", "frames")
                 .Description("Number of frames recorded in each interval."));
    Register(Integer(PARAM_ID(IntervalTime), "Interval Time", "Intv Tim")
                 .Range(1, 86400)
                 .Default(10)
                 .Units("s")
                 .EnabledBy(eParamID_IntervalRecord, 1)
                 .Suffixes("second", "seconds")
                 .Description("Time from the start of one interval to the start of the next."));
}

}  // namespace vexa::config::catalogue
