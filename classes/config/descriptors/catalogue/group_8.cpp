#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

/// "hh:mm:ss:ff"; a semicolon before the frames marks drop-frame counting.
constexpr unsigned int kTimecodeLength = 11;

void CreateTimecodeSources()
{
    Register(Enum(PARAM_ID(TimecodeIn), "Timecode Input", "TC In")
                 .Values(TimecodeSources())
                 .Dependent(eParamID_InputTimecode)
                 .Description("Source of the time code that is recorded."));
    if (CProductFeatures::hasRS422()) {
        Register(Enum(PARAM_ID(RS422TimecodeIn), "RS-422 Timecode Input", "TC RS422")
                     .Values({{0, "LTC"}, {1, "VITC"}, {2, "Timer"}})
                     .EnabledBy(eParamID_TimecodeIn, kTimecodeRS422)
                     .Description("Time code that is asked from the machine on the RS-422 port."));
    }
    Register(Enum(PARAM_ID(LocalTimecodeIn), "Local Timecode Input", "TC Local")
                 .Default(kTimecodePresetValue)
                 .Values(TimecodeSources())
                 .Description("Source of the time code when the selected one is missing."));
    if (CProductFeatures::hasFireWire()) {
        Register(Enum(PARAM_ID(FW400TimecodeIn), "FireWire Timecode Input", "TC FW400")
                     .Values({{0, "Record Run"}, {1, "Free Run"}})
                     .EnabledBy(eParamID_TimecodeIn, kTimecodeFireWire)
                     .Description("Time code that is taken from the FireWire stream."));
    }
}

}  // namespace

/// Group 8: time code.
void CreateGroup_8()
{
    if (CProductFeatures::canDoTimecode()) {
        CreateTimecodeSources();
        Register(String(PARAM_ID(TimecodeValue), "Timecode Value", "TC Value")
                     .Length(kTimecodeLength, kTimecodeLength)
                     .Default("01:00:00:00")
                     .EnabledBy(eParamID_TimecodeIn, kTimecodePresetValue)
                     .Description("Time code of the first frame that is recorded with the preset value."));
        Register(Enum(PARAM_ID(TimecodeType), "Timecode Type", "TC Type")
                     .Default(2)
                     .Values({{0, "Non-Drop"}, {1, "Drop Frame"}, {2, "Follow Input"}})
                     .Dependent(eParamID_DisplayTimecode)
                     .Description("Counting of time code at 29.97 and 59.94 frames per second."));
        Register(Enum(PARAM_ID(ArmRecording), "Arm Recording", "Arm Rec")
                     .NotPersisted()
                     .NotInRegisters()
                     .Values({{0, "Off"}, {1, "Timecode Runs", "TC Runs"}, {2, "SDI Trigger", "SDI Trig"}})
                     .Description("Signal that starts and stops recording without a key."));
    }
    if (CProductFeatures::hasMedia()) {
        Register(String(PARAM_ID(DisplayTimecode), "Display Timecode", "TC Disp")
                     .Status()
                     .Length(0, kTimecodeLength)
                     .Description("Time code of the frame that is being recorded or played."));
        Register(String(PARAM_ID(InputTimecode), "Input Timecode", "TC Input")
                     .Status()
                     .Length(0, kTimecodeLength)
                     .Description("Time code that arrives from the selected source."));
    }
}

}  // namespace vexa::config::catalogue
