#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

/// The store counts takes on every model, so these parameters always exist.
void CreateClipNaming()
{
    const bool shown = CProductFeatures::hasMedia();
    Register(
        Enum(PARAM_ID(ClipName), "Clip Name", "ClipName")
            .Values({{0, "Clip"}, {1, "Scene"}, {2, "Shot"}, {3, "Roll"}, {4, "Program"}, {5, "Unit Name"}})
            .HiddenUnless(shown)
            .DisabledBy(eParamID_UseCustomClipName, 1)
            .Dependent(eParamID_CombinedName)
            .Description("First word of the names of new clips."));
    Register(Integer(PARAM_ID(ClipNumber), "Clip Number", "Clip No")
                 .Range(1, 999)
                 .Default(1)
                 .HiddenUnless(shown)
                 .DisabledBy(eParamID_UseCustomClipName, 1)
                 .Dependent(eParamID_CombinedName)
                 .Description("Number that follows the first word of a clip name."));
    Register(Enum(PARAM_ID(ClipAppend), "Clip Append", "Append")
                 .Values({{0, "None"}, {1, "Letter"}, {2, "Date"}, {3, "Date and Time"}})
                 .HiddenUnless(shown)
                 .DisabledBy(eParamID_UseCustomClipName, 1)
                 .Dependent(eParamID_CombinedName)
                 .Description("What follows the number in a clip name."));
    Register(Enum(PARAM_ID(AlphaAppend), "Alpha Append", "Alpha")
                 .Values(Letters(0))
                 .HiddenUnless(shown)
                 .EnabledBy(eParamID_ClipAppend, 1)
                 .DisabledBy(eParamID_UseCustomClipName, 1)
                 .Dependent(eParamID_CombinedName)
                 .Description("Letter that follows the number in a clip name."));
    Register(Integer(PARAM_ID(Take), "Take", "Take")
                 .NotInRegisters()
                 .Range(1, 999)
                 .Default(1)
                 .ClassName("volatile")  // a new clip name sets it back without an event
                 .HiddenUnless(shown)
                 .DisabledBy(eParamID_UseCustomClipTake, 1)
                 .Dependent(eParamID_CombinedName)
                 .Description("Take number of the next recording under the present clip name."));
    Register(String(PARAM_ID(CombinedName), "Combined Name", "Combined")
                 .Status()
                 .Length(0, 64)
                 .HiddenUnless(shown)
                 .Description("Name that the next recording will have."));
}

}  // namespace

/// Group 17: names of clips.
void CreateGroup_17()
{
    if (CProductFeatures::hasMedia()) {
        Register(String(PARAM_ID(ReelName), "Reel Name", "Reel")
                     .Length(0, 8)
                     .ClassNameIf(!CProductFeatures::usesReelInUI(), "panel_hidden")
                     .Description("Reel name that is written into the clips."));
        Register(Enum(PARAM_ID(Camera), "Camera", "Camera")
                     .Values({{0, "None"}})
                     .Values(Letters(1))
                     .Description("Letter of the camera that is written into the clips."));
    }
    CreateClipNaming();
}

}  // namespace vexa::config::catalogue
