#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"
#include "services/product/product_id.h"

namespace vexa::config::catalogue {

namespace {

/// The raster of 1080 clips on playback, and how each raster is sent.
void CreatePlaybackTypes()
{
    if (!CProductFeatures::canDoPlayback()) return;

    constexpr const char* kDescription = "Raster in which 1080-line clips are played.";
    if (CProductFeatures::has12G()) {
        Register(Enum(PARAM_ID(1080PlaybackType), "1080 Playback Type", "1080Play")
                     .Values({{0, "Normal"}, {1, "4K/QHD"}, {2, "Follow Clip"}, {3, "Follow Input"}})
                     .Description(kDescription));
    } else if (CProductFeatures::canDoUHD()) {
        Register(Enum(PARAM_ID(1080PlaybackType), "1080 Playback Type", "1080Play")
                     .Values({{0, "Normal"}, {1, "4K/QHD"}, {2, "Follow Clip"}})
                     .Description(kDescription));
    } else {
        Register(Enum(PARAM_ID(1080PlaybackType), "1080 Playback Type", "1080Play")
                     .Values({{0, "Normal"}, {2, "Follow Clip"}})
                     .Description(kDescription));
    }

    constexpr const char* kNormal = "Scanning of 1080-line clips at 23.98 to 30 frames per second.";
    if (CProductFeatures::canDoRGB444()) {
        Register(Enum(PARAM_ID(1080PlaybackType_Normal), "1080 Playback Normal", "1080Norm")
                     .Values({{0, "Progressive"}, {1, "PsF"}, {2, "Follow Clip"}})
                     .EnabledBy(eParamID_1080PlaybackType, 0)
                     .Description(kNormal));
    } else {
        Register(Enum(PARAM_ID(1080PlaybackType_Normal), "1080 Playback Normal", "1080Norm")
                     .Values({{0, "Progressive"}, {1, "PsF"}})
                     .Default(1)
                     .EnabledBy(eParamID_1080PlaybackType, 0)
                     .Description(kNormal));
    }

    constexpr const char* kQuad = "How 1080-line clips are sent in a 2160-line raster.";
    if (CProductFeatures::has12G()) {
        Register(Enum(PARAM_ID(1080PlaybackType_4K_QHD), "1080 Playback 4K/QHD", "1080QHD")
                     .Values({{0, "Square Division"}, {1, "2-Sample Interleave"}, {2, "12G Single Link"}})
                     .Default(2)
                     .EnabledBy(eParamID_1080PlaybackType, 1)
                     .Description(kQuad));
    } else if (CProductFeatures::canDoUHD()) {
        Register(Enum(PARAM_ID(1080PlaybackType_4K_QHD), "1080 Playback 4K/QHD", "1080QHD")
                     .Values({{0, "Square Division"}, {1, "2-Sample Interleave"}})
                     .EnabledBy(eParamID_1080PlaybackType, 1)
                     .Description(kQuad));
    }
}

void CreateInputConversion()
{
    constexpr const char* kDescription = "Conversion of the video input before it is processed or recorded.";
    if (CProductID::isELM()) {
        Register(Enum(PARAM_ID(VideoInConvert), "Video In Convert", "In Conv")
                     .Values(Conversions({eConvert_Off, eConvert_SDTo720p, eConvert_SDTo1080i,
                                          eConvert_720pTo1080i, eConvert_1080iTo720p, eConvert_720pTo1080p,
                                          eConvert_1080iTo1080p, eConvert_1080PsFTo1080p}))
                     .Description(kDescription));
    } else if (CProductID::isHAZEL()) {
        Register(Enum(PARAM_ID(VideoInConvert), "Video In Convert", "In Conv")
                     .Values(Conversions({eConvert_Off, eConvert_720pTo1080i, eConvert_1080iTo720p,
                                          eConvert_720pTo1080p, eConvert_1080iTo1080p}))
                     .Description(kDescription));
    } else if (CProductID::isLARCH()) {
        Register(
            Enum(PARAM_ID(VideoInConvert), "Video In Convert", "In Conv")
                .Values(Conversions({eConvert_Off, eConvert_720pTo1080p, eConvert_1080iTo1080p,
                                     eConvert_1080pTo2160p, eConvert_2160pTo1080p, eConvert_4KTo2160pCrop}))
                .Description(kDescription));
    } else if (CProductID::isMAPLE()) {
        Register(Enum(PARAM_ID(VideoInConvert), "Video In Convert", "In Conv")
                     .Values(Conversions({eConvert_Off, eConvert_720pTo1080p, eConvert_1080PsFTo1080p}))
                     .Description(kDescription));
    } else if (CProductFeatures::canDoUHD()) {
        Register(Enum(PARAM_ID(VideoInConvert), "Video In Convert", "In Conv")
                     .Values(Conversions({eConvert_Off, eConvert_1080PsFTo1080p, eConvert_1080pTo2160p,
                                          eConvert_2160pTo1080p, eConvert_4KTo2160pCrop}))
                     .Description(kDescription));
    } else {
        Register(Enum(PARAM_ID(VideoInConvert), "Video In Convert", "In Conv")
                     .Values(Conversions({eConvert_Off, eConvert_SDTo720p, eConvert_SDTo1080i,
                                          eConvert_720pTo1080i, eConvert_1080iTo720p}))
                     .Description(kDescription));
    }
}

void CreateOutputConversion()
{
    constexpr const char* kDescription = "Conversion of the video that leaves the SDI output.";
    if (CProductID::isELM()) {
        Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                     .Values(Conversions({eConvert_Off, eConvert_SDTo720p, eConvert_SDTo1080i,
                                          eConvert_720pTo1080i, eConvert_1080iTo720p, eConvert_720pTo1080p,
                                          eConvert_1080iTo1080p, eConvert_HDToSDLetterbox,
                                          eConvert_HDToSDCrop, eConvert_HDToSDAnamorphic}))
                     .Description(kDescription));
    } else if (CProductID::isHAZEL()) {
        Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                     .Values(Conversions({eConvert_Off, eConvert_720pTo1080i, eConvert_1080iTo720p,
                                          eConvert_HDToSDLetterbox}))
                     .Description(kDescription));
    } else if (CProductID::isLARCH()) {
        Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                     .Values(Conversions({eConvert_Off, eConvert_1080pTo2160p, eConvert_2160pTo1080p,
                                          eConvert_4KTo2160pCrop}))
                     .Description(kDescription));
    } else if (CProductID::isMAPLE()) {
        Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                     .Values(Conversions({eConvert_Off, eConvert_1080iTo720p, eConvert_720pTo1080p}))
                     .Description(kDescription));
    } else if (CProductID::isBIRCH()) {
        Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                     .Values(Conversions({eConvert_Off, eConvert_1080pTo2160p, eConvert_2160pTo1080p}))
                     .Description(kDescription));
    } else if (CProductID::isOAK()) {
        Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                     .Values(Conversions({eConvert_Off, eConvert_720pTo1080p, eConvert_1080pTo2160p,
                                          eConvert_2160pTo1080p, eConvert_4KTo2160pCrop}))
                     .Description(kDescription));
    } else if (CProductFeatures::isMultiChannel()) {
        Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                     .Values(Conversions({eConvert_Off, eConvert_720pTo1080i, eConvert_1080iTo720p}))
                     .Description("Conversion of the video on all channel outputs."));
    } else {
        Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                     .Values(Conversions({eConvert_Off, eConvert_720pTo1080i, eConvert_1080iTo720p,
                                          eConvert_HDToSDLetterbox, eConvert_HDToSDCrop,
                                          eConvert_HDToSDAnamorphic}))
                     .Description(kDescription));
    }
}

/// Units with one channel have one list of links; multi-channel units have one for each record type.
void CreateSDIOutputs()
{
    constexpr const char* kDescription = "SDI links on which the video output leaves the unit.";
    if (CProductFeatures::isMultiChannel()) {
        if (CProductFeatures::has12G()) {
            Register(Enum(PARAM_ID(SDIOutput_SingleChannel), "SDI Output Single Channel", "SDI Sngl")
                         .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Single3G,
                                           eSdiLink_Quad3G, eSdiLink_Single6G, eSdiLink_Single12G}))
                         .EnabledBy(eParamID_RecordType, 0)
                         .Description("SDI links of the video output while one channel is in use."));
            Register(
                Enum(PARAM_ID(SDIOutput_MultiChannel), "SDI Output Multi-Channel", "SDI Mult")
                    .Values(
                        SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Single3G, eSdiLink_Single12G}))
                    .EnabledBy(eParamID_RecordType, 1)
                    .Description("SDI link of each channel's output while several channels are in use."));
        } else {
            Register(Enum(PARAM_ID(SDIOutput_SingleChannel), "SDI Output Single Channel", "SDI Sngl")
                         .Values(SdiLinks(
                             {eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Dual15G, eSdiLink_Single3G}))
                         .EnabledBy(eParamID_RecordType, 0)
                         .Description("SDI links of the video output while one channel is in use."));
            Register(
                Enum(PARAM_ID(SDIOutput_MultiChannel), "SDI Output Multi-Channel", "SDI Mult")
                    .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Single3G}))
                    .EnabledBy(eParamID_RecordType, 1)
                    .Description("SDI link of each channel's output while several channels are in use."));
        }
    } else if (CProductID::isLARCH()) {
        Register(Enum(PARAM_ID(SDIOutput), "SDI Output", "SDI Out")
                     .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Single3G, eSdiLink_Dual3G,
                                       eSdiLink_Quad3G, eSdiLink_Single6G, eSdiLink_Single12G}))
                     .Description(kDescription));
    } else if (CProductFeatures::has12G()) {
        Register(Enum(PARAM_ID(SDIOutput), "SDI Output", "SDI Out")
                     .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Single3G, eSdiLink_Quad3G,
                                       eSdiLink_Single6G, eSdiLink_Single12G}))
                     .Description(kDescription));
    } else if (CProductFeatures::canDoUHD()) {
        Register(Enum(PARAM_ID(SDIOutput), "SDI Output", "SDI Out")
                     .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Dual15G, eSdiLink_Single3G,
                                       eSdiLink_Dual3G, eSdiLink_Quad3G}))
                     .Description(kDescription));
    } else if (!CProductFeatures::hasMedia()) {
        Register(Enum(PARAM_ID(SDIOutput), "SDI Output", "SDI Out")
                     .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Single3G}))
                     .Description(kDescription));
    } else {
        Register(
            Enum(PARAM_ID(SDIOutput), "SDI Output", "SDI Out")
                .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Dual15G, eSdiLink_Single3G}))
                .Description(kDescription));
    }
}

/// Range and depth of RGB 4:4:4 pictures on SDI.
void CreateRGB()
{
    Register(Enum(PARAM_ID(RGBRange), "RGB Range", "RGB Rng")
                 .Values({{0, "Full"}, {1, "SMPTE"}})
                 .Default(1)
                 .Description("Code range of RGB video on the SDI output."));

    constexpr const char* kDepth = "Bits per component of RGB 4:4:4 video on the SDI output.";
    if (!CProductFeatures::hasMedia()) {
        Register(Enum(PARAM_ID(SDI10_12Bit), "SDI 10/12 Bit", "SDI Bits")
                     .Values({{0, "10-bit"}, {1, "12-bit"}, {2, "Follow Input"}})
                     .Default(2)
                     .Description(kDepth));
    } else if (CProductFeatures::has12G()) {
        Register(Enum(PARAM_ID(SDI10_12Bit), "SDI 10/12 Bit", "SDI Bits")
                     .Values({{0, "10-bit"}, {1, "12-bit"}, {3, "Follow Clip"}})
                     .Default(3)
                     .Description(kDepth));
    } else if (CProductFeatures::canDoRGB444()) {
        Register(Enum(PARAM_ID(SDI10_12Bit), "SDI 10/12 Bit", "SDI Bits")
                     .Values({{0, "10-bit"}, {1, "12-bit"}})
                     .Default(1)
                     .Description(kDepth));
    } else {
        Register(Enum(PARAM_ID(SDI10_12Bit), "SDI 10/12 Bit", "SDI Bits")
                     .Values({{0, "10-bit"}, {1, "12-bit"}})
                     .Description(kDepth));
    }

    if (CProductFeatures::canDoRGB444()) {
        Register(Enum(PARAM_ID(SDI10_12Bit_Both), "SDI 10/12 Bit 4444", "Bits4444")
                     .Values({{0, "10-bit"}, {1, "12-bit"}})
                     .Default(1)
                     .Description("Bits per component on SDI of 4444 clips, which hold both depths."));
        Register(Enum(PARAM_ID(SDI10_12Bit_10Only), "SDI 10/12 Bit 422", "Bits 422")
                     .Values({{0, "10-bit"}})
                     .Description("Bits per component on SDI of 422 clips, which hold ten."));
    }
    if (CProductFeatures::canDoXQ()) {
        Register(Enum(PARAM_ID(SDI10_12Bit_XQ), "SDI 10/12 Bit 4444 XQ", "Bits XQ")
                     .Values({{0, "10-bit"}, {1, "12-bit"}})
                     .Default(1)
                     .Description("Bits per component on SDI of 4444 XQ clips."));
    }
}

void Create3GLevel()
{
    constexpr const char* kDescription = "Mapping of 1080p50 to 1080p60 on 3G SDI outputs.";
    if (!CProductFeatures::hasMedia()) {
        Register(Enum(PARAM_ID(3G_SDILevel), "3G SDI Level", "3G Level")
                     .Values({{0, "Level A"}, {1, "Level B-DL"}, {2, "Follow Input"}})
                     .Default(2)
                     .Description(kDescription));
    } else if (CProductFeatures::isMultiChannel()) {
        Register(Enum(PARAM_ID(3G_SDILevel), "3G SDI Level", "3G Level")
                     .Values({{0, "Level A"}, {1, "Level B-DL"}, {3, "Level B-DS"}})
                     .Description(kDescription));
    } else {
        Register(Enum(PARAM_ID(3G_SDILevel), "3G SDI Level", "3G Level")
                     .Values({{0, "Level A"}, {1, "Level B-DL"}})
                     .Description(kDescription));
    }
}

}  // namespace

/// Group 1: video outputs.
void CreateGroup_1()
{
    CreatePlaybackTypes();
    CreateInputConversion();
    CreateOutputConversion();
    CreateSDIOutputs();
    CreateRGB();
    Create3GLevel();
}

}  // namespace vexa::config::catalogue
