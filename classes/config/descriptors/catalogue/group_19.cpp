#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

/// Identifiers that distinguish the files of a multi-channel recording.
void CreateClipIdentifiers()
{
    Register(
        Enum(PARAM_ID(UseClipIdentifiers), "Use Clip Identifiers", "Use ID")
            .Default(1)
            .Values(OffOn())
            .Description("Ends the file names of a multi-channel recording with an identifier per channel."));
    constexpr ParamName kChannels[] = {{PARAM_ID(ClipIdentifier_Ch1)},
                                       {PARAM_ID(ClipIdentifier_Ch2)},
                                       {PARAM_ID(ClipIdentifier_Ch3)},
                                       {PARAM_ID(ClipIdentifier_Ch4)}};
    unsigned int channel = 0;
    for (const auto& [id, idName] : kChannels) {
        const std::string number = std::to_string(++channel);
        Register(String(id, idName, "Clip Identifier Ch" + number, "ClpID " + number)
                     .Length(0, 8)
                     .Default("Ch" + number)
                     .EnabledBy(eParamID_UseClipIdentifiers, 1)
                     .Description("End of the file names of channel " + number + "."));
    }
}

}  // namespace

/// Group 19: clip names that users write themselves. The store counts takes on every model, so the first four
/// parameters always exist.
void CreateGroup_19()
{
    const bool shown = CProductFeatures::hasMedia();
    Register(Enum(PARAM_ID(UseCustomClipName), "Use Custom Clip Name", "UseCstmN")
                 .Values(OffOn())
                 .HiddenUnless(shown)
                 .Dependent(eParamID_CombinedName)
                 .Description("Names clips with the custom name instead of word and number."));
    Register(String(PARAM_ID(CustomClipName), "Custom Clip Name", "CstmName")
                 .Length(0, 32)
                 .HiddenUnless(shown)
                 .EnabledBy(eParamID_UseCustomClipName, 1)
                 .Dependent(eParamID_CombinedName)
                 .Attribute("field_width", 32)
                 .Description("Name of new clips, without the take."));
    Register(Enum(PARAM_ID(UseCustomClipTake), "Use Custom Clip Take", "UseCstmT")
                 .Values(OffOn())
                 .HiddenUnless(shown)
                 .Dependent(eParamID_CombinedName)
                 .Description("Ends clip names with the custom take instead of the counted one."));
    Register(Integer(PARAM_ID(CustomTake), "Custom Take", "CstmTake")
                 .NotInRegisters()
                 .Range(1, 999)
                 .Default(1)
                 .ClassName("volatile")  // as the counted take
                 .HiddenUnless(shown)
                 .EnabledBy(eParamID_UseCustomClipTake, 1)
                 .Dependent(eParamID_CombinedName)
                 .Description("Take number of the next recording under the custom name."));
    if (CProductFeatures::isMultiChannel()) CreateClipIdentifiers();
}

}  // namespace vexa::config::catalogue
