#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

constexpr unsigned int kVideoInQuadLink = 5, kVideoIn12G = 6;

/// HDMI belongs to the unit, so it is no source of a single channel.
ValueList AudioSources(bool withHDMI)
{
    ValueList sources = {{0, "SDI 2 Ch"}, {1, "SDI 8 Ch"}, {2, "SDI 16 Ch"}};
    if (withHDMI) sources.push_back({3, "HDMI"});
    sources.push_back({4, "AES/EBU"});
    if (CProductFeatures::hasAnalogInputs()) sources.push_back({5, "Analog"});
    return sources;
}

void CreateVideoInputs()
{
    Register(Enum(PARAM_ID(VideoInSelect), "Video Input", "Vid In")
                 .Values({{0, "SDI 1"}})
                 .ValuesIf(CProductFeatures::countSDIInputs() >= 2, {{1, "SDI 2"}})
                 .ValuesIf(CProductFeatures::countSDIInputs() >= 4, {{2, "SDI 3"}, {3, "SDI 4"}})
                 .ValuesIf(!CProductFeatures::isMultiChannel(), {{4, "HDMI"}})
                 .ValuesIf(CProductFeatures::canDoUHD(), {{kVideoInQuadLink, "SDI Quad Link"}})
                 .ValuesIf(CProductFeatures::has12G(), {{kVideoIn12G, "SDI 12G"}})
                 .ValuesIf(CProductFeatures::hasAnalogInputs(), {{7, "Component"}, {8, "Composite"}})
                 .DisabledByIf(CProductFeatures::isMultiChannel(), eParamID_RecordType, 1)
                 .Description("Connector that the video comes from."));

    const ValueList divisions = {
        {0, "Square Division", "SqD"}, {1, "2-Sample Interleave", "2SI"}, {2, "Auto"}};
    if (CProductFeatures::canDoUHD()) {
        Register(Enum(PARAM_ID(SDIIn_ImageDivision), "SDI In Image Division 1.5G", "Div 1.5G")
                     .Values({divisions[0]})
                     .EnabledBy(eParamID_VideoInSelect, kVideoInQuadLink)
                     .Description("How four 1.5G links share a 2160-line picture."));
        Register(Enum(PARAM_ID(SDIIn_ImageDivision_3G), "SDI In Image Division 3G", "Div 3G")
                     .Default(2)
                     .Values(divisions)
                     .EnabledBy(eParamID_VideoInSelect, kVideoInQuadLink)
                     .Description("How four 3G links share a 2160-line picture."));
    }
    if (CProductFeatures::has12G()) {
        Register(Enum(PARAM_ID(SDIIn_ImageDivision_12G), "SDI In Image Division 12G", "Div 12G")
                     .Default(2)
                     .Values(divisions)
                     .EnabledBy(eParamID_VideoInSelect, kVideoIn12G)
                     .Description("How the pictures of a 12G link are divided."));
    }
    Register(Enum(PARAM_ID(SDIIn_VideoInputRate), "SDI In Link Rate", "SDI Rate")
                 .Values({{0, "Auto"}})
                 .ValuesIf(CProductFeatures::canDoHeight(480), {{1, "270M"}})
                 .Values({{2, "1.5G"}, {3, "3G"}})
                 .ValuesIf(CProductFeatures::has12G(), {{4, "6G"}, {5, "12G"}})
                 .Description("Link rate that the SDI input expects."));
}

/// One parameter for each channel of a multi-channel recorder but the last, which uses the single-channel
/// one.
void CreateChannelAudio()
{
    constexpr ParamName kChannels[] = {
        {PARAM_ID(AudioInSelectCh1)}, {PARAM_ID(AudioInSelectCh2)}, {PARAM_ID(AudioInSelectCh3)}};
    unsigned int channel = 0;
    for (const auto& [id, idName] : kChannels) {
        const std::string number = std::to_string(++channel);
        Register(Enum(id, idName, "Audio Input Ch" + number, "AudInCh" + number)
                     .Default(1)
                     .Values(AudioSources(false))
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Source of the audio that is recorded with channel " + number + "."));
    }
}

void CreateMultiChannel()
{
    Register(Enum(PARAM_ID(VideoInSelectMultiChnl), "Video Input Multi-Channel", "VidInMul")
                 .Values({{0, "SDI 1-4"}, {1, "SDI 1 to All"}, {2, "SDI 1-2 Twice"}})
                 .EnabledBy(eParamID_RecordType, 1)
                 .Description("Connectors that the channels' video comes from."));
    Register(Enum(PARAM_ID(AudioEncodeChannelFocus), "Audio Channel Focus", "AudFocus")
                 .NotInRegisters()
                 .Values({{0, "Ch1"}, {1, "Ch2"}, {2, "Ch3"}, {3, "Ch4"}})
                 .EnabledBy(eParamID_RecordType, 1)
                 .Description("Channel whose audio is metered and heard on the headphones."));
    CreateChannelAudio();
    Register(Enum(PARAM_ID(RecordType), "Record Type", "Rec Type")
                 .Values({{0, "Single Channel"}, {1, "Multi-Channel"}})
                 .Dependent(eParamID_EncodeType)
                 .Dependent(eParamID_VideoInSelect)
                 .Dependent(eParamID_AudioInSelect)
                 .Description("Whether one channel is recorded or several at once."));
    Register(Enum(PARAM_ID(EncodeChannels), "Encode Channels", "Enc Chnl")
                 .Default(3)
                 .Values({{0, "1 Channel"}, {1, "2 Channels"}, {2, "3 Channels"}, {3, "4 Channels"}})
                 .EnabledBy(eParamID_RecordType, 1)
                 .Dependent(eParamID_ChannelsToRecord)
                 .Description("Number of channels that are encoded."));
    Register(
        Enum(PARAM_ID(ChannelsToRecord), "Channels to Record", "Rec Chnl")
            .Values(
                {{0, "All"}, {1, "Ch1"}, {2, "Ch2"}, {3, "Ch3"}, {4, "Ch4"}, {5, "Ch1+Ch2"}, {6, "Ch3+Ch4"}})
            .EnabledBy(eParamID_RecordType, 1)
            .Description("Encoded channels that the record key starts."));
}

}  // namespace

/// Group 2: inputs, and the channels that are recorded from them.
void CreateGroup_2()
{
    CreateVideoInputs();
    Register(Enum(PARAM_ID(AudioInSelect), "Audio Input", "Aud In")
                 .Default(1)
                 .Values(AudioSources(!CProductFeatures::isMultiChannel()))
                 .Description("Source of the audio; on multi-channel units that of channel 4 as well."));
    if (CProductFeatures::isMultiChannel()) CreateMultiChannel();
    if (CProductFeatures::hasInputFrameSync()) {
        Register(Enum(PARAM_ID(Input_Frame_Sync), "Input Frame Sync", "In FSync")
                     .Default(1)
                     .Values(OffOn())
                     .Description("Locks the inputs to the reference by repeating or dropping frames."));
    }
}

}  // namespace vexa::config::catalogue
