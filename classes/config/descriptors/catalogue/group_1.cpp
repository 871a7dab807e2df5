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

    const bool uhd = CProductFeatures::canDoUHD(), sdi12G = CProductFeatures::has12G(),
               rgb444 = CProductFeatures::canDoRGB444();
    Register(Enum(PARAM_ID(1080PlaybackType), "1080 Playback Type", "1080Play")
                 .Values({{0, "Normal"}})
                 .ValuesIf(uhd, {{1, "4K/QHD"}})
                 .Values({{2, "Follow Clip"}})
                 .ValuesIf(sdi12G, {{3, "Follow Input"}})
                 .Description("Raster in which 1080-line clips are played."));
    Register(Enum(PARAM_ID(1080PlaybackType_Normal), "1080 Playback Normal", "1080Norm")
                 .Default(rgb444 ? 0 : 1)
                 .Values({{0, "Progressive"}, {1, "PsF"}})
                 .ValuesIf(rgb444, {{2, "Follow Clip"}})
                 .EnabledBy(eParamID_1080PlaybackType, 0)
                 .Description("Scanning of 1080-line clips at 23.98 to 30 frames per second."));
    if (!uhd) return;

    Register(Enum(PARAM_ID(1080PlaybackType_4K_QHD), "1080 Playback 4K/QHD", "1080QHD")
                 .Default(sdi12G ? 2 : 0)
                 .Values({{0, "Square Division"}, {1, "2-Sample Interleave"}})
                 .ValuesIf(sdi12G, {{2, "12G Single Link"}})
                 .EnabledBy(eParamID_1080PlaybackType, 1)
                 .Description("How 1080-line clips are sent in a 2160-line raster."));
}

ValueList InputConversions()
{
    if (CProductID::isELM())
        return Conversions({eConvert_Off, eConvert_SDTo720p, eConvert_SDTo1080i, eConvert_720pTo1080i,
                            eConvert_1080iTo720p, eConvert_720pTo1080p, eConvert_1080iTo1080p,
                            eConvert_1080PsFTo1080p});
    if (CProductID::isHAZEL())
        return Conversions({eConvert_Off, eConvert_720pTo1080i, eConvert_1080iTo720p, eConvert_720pTo1080p,
                            eConvert_1080iTo1080p});
    if (CProductID::isLARCH())
        return Conversions({eConvert_Off, eConvert_720pTo1080p, eConvert_1080iTo1080p, eConvert_1080pTo2160p,
                            eConvert_2160pTo1080p, eConvert_4KTo2160pCrop});
    if (CProductID::isMAPLE())
        return Conversions({eConvert_Off, eConvert_720pTo1080p, eConvert_1080PsFTo1080p});
    if (CProductFeatures::canDoUHD())
        return Conversions({eConvert_Off, eConvert_1080PsFTo1080p, eConvert_1080pTo2160p,
                            eConvert_2160pTo1080p, eConvert_4KTo2160pCrop});
    return Conversions(
        {eConvert_Off, eConvert_SDTo720p, eConvert_SDTo1080i, eConvert_720pTo1080i, eConvert_1080iTo720p});
}

ValueList OutputConversions()
{
    if (CProductID::isELM())
        return Conversions({eConvert_Off, eConvert_SDTo720p, eConvert_SDTo1080i, eConvert_720pTo1080i,
                            eConvert_1080iTo720p, eConvert_720pTo1080p, eConvert_1080iTo1080p,
                            eConvert_HDToSDLetterbox, eConvert_HDToSDCrop, eConvert_HDToSDAnamorphic});
    if (CProductID::isHAZEL())
        return Conversions(
            {eConvert_Off, eConvert_720pTo1080i, eConvert_1080iTo720p, eConvert_HDToSDLetterbox});
    if (CProductID::isLARCH())
        return Conversions(
            {eConvert_Off, eConvert_1080pTo2160p, eConvert_2160pTo1080p, eConvert_4KTo2160pCrop});
    if (CProductID::isMAPLE()) return Conversions({eConvert_Off, eConvert_1080iTo720p, eConvert_720pTo1080p});
    if (CProductID::isBIRCH())
        return Conversions({eConvert_Off, eConvert_1080pTo2160p, eConvert_2160pTo1080p});
    if (CProductFeatures::has12G())
        return Conversions({eConvert_Off, eConvert_720pTo1080p, eConvert_1080pTo2160p, eConvert_2160pTo1080p,
                            eConvert_4KTo2160pCrop});
    if (CProductFeatures::isMultiChannel())
        return Conversions({eConvert_Off, eConvert_720pTo1080i, eConvert_1080iTo720p});
    return Conversions({eConvert_Off, eConvert_720pTo1080i, eConvert_1080iTo720p, eConvert_HDToSDLetterbox,
                        eConvert_HDToSDCrop, eConvert_HDToSDAnamorphic});
}

void CreateConversions()
{
    Register(Enum(PARAM_ID(VideoInConvert), "Video In Convert", "In Conv")
                 .Values(InputConversions())
                 .Description("Conversion of the video input before it is processed or recorded."));
    Register(Enum(PARAM_ID(VideoOutConvert), "Video Out Convert", "Out Conv")
                 .Values(OutputConversions())
                 .Description(CProductFeatures::isMultiChannel()
                                  ? "Conversion of the video on all channel outputs."
                                  : "Conversion of the video that leaves the SDI output."));
}

/// Multi-channel units have one list of links for each record type.
void CreateMultiChannelSDIOutputs()
{
    const bool sdi12G = CProductFeatures::has12G();
    Register(Enum(PARAM_ID(SDIOutput_SingleChannel), "SDI Output Single Channel", "SDI Sngl")
                 .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G}))
                 .ValuesIf(!sdi12G, SdiLinks({eSdiLink_Dual15G}))
                 .Values(SdiLinks({eSdiLink_Single3G}))
                 .ValuesIf(sdi12G, SdiLinks({eSdiLink_Quad3G, eSdiLink_Single6G, eSdiLink_Single12G}))
                 .EnabledBy(eParamID_RecordType, 0)
                 .Description("SDI links of the video output while one channel is in use."));
    Register(Enum(PARAM_ID(SDIOutput_MultiChannel), "SDI Output Multi-Channel", "SDI Mult")
                 .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G, eSdiLink_Single3G}))
                 .ValuesIf(sdi12G, SdiLinks({eSdiLink_Single12G}))
                 .EnabledBy(eParamID_RecordType, 1)
                 .Description("SDI link of each channel's output while several channels are in use."));
}

void CreateSDIOutput()
{
    const bool uhd = CProductFeatures::canDoUHD(), sdi12G = CProductFeatures::has12G();
    Register(Enum(PARAM_ID(SDIOutput), "SDI Output", "SDI Out")
                 .Values(SdiLinks({eSdiLink_Auto, eSdiLink_Single15G}))
                 .ValuesIf(CProductFeatures::hasMedia() && !sdi12G, SdiLinks({eSdiLink_Dual15G}))
                 .Values(SdiLinks({eSdiLink_Single3G}))
                 .ValuesIf(CProductID::isLARCH() || (uhd && !sdi12G), SdiLinks({eSdiLink_Dual3G}))
                 .ValuesIf(uhd, SdiLinks({eSdiLink_Quad3G}))
                 .ValuesIf(sdi12G, SdiLinks({eSdiLink_Single6G, eSdiLink_Single12G}))
                 .Description("SDI links on which the video output leaves the unit."));
}

unsigned int DefaultDepth()
{
    if (!CProductFeatures::hasMedia()) return 2;
    if (CProductFeatures::has12G()) return 3;
    return CProductFeatures::canDoRGB444() ? 1 : 0;
}

/// Range and depth of RGB 4:4:4 pictures on SDI.
void CreateRGB()
{
    const bool media = CProductFeatures::hasMedia();
    const ValueList bothDepths = {{0, "10-bit"}, {1, "12-bit"}};
    Register(Enum(PARAM_ID(RGBRange), "RGB Range", "RGB Rng")
                 .Default(1)
                 .Values({{0, "Full"}, {1, "SMPTE"}})
                 .Description("Code range of RGB video on the SDI output."));
    Register(Enum(PARAM_ID(SDI10_12Bit), "SDI 10/12 Bit", "SDI Bits")
                 .Default(DefaultDepth())
                 .Values(bothDepths)
                 .ValuesIf(!media, {{2, "Follow Input"}})
                 .ValuesIf(media && CProductFeatures::has12G(), {{3, "Follow Clip"}})
                 .Description("Bits per component of RGB 4:4:4 video on the SDI output."));
    if (CProductFeatures::canDoRGB444()) {
        Register(Enum(PARAM_ID(SDI10_12Bit_Both), "SDI 10/12 Bit 4444", "Bits4444")
                     .Default(1)
                     .Values(bothDepths)
                     .Description("Bits per component on SDI of 4444 clips, which hold both depths."));
        Register(Enum(PARAM_ID(SDI10_12Bit_10Only), "SDI 10/12 Bit 422", "Bits 422")
                     .Values({{0, "10-bit"}})
                     .Description("Bits per component on SDI of 422 clips, which hold ten."));
    }
    if (CProductFeatures::canDoXQ()) {
        Register(Enum(PARAM_ID(SDI10_12Bit_XQ), "SDI 10/12 Bit 4444 XQ", "Bits XQ")
                     .Default(1)
                     .Values(bothDepths)
                     .Description("Bits per component on SDI of 4444 XQ clips."));
    }
}

void Create3GLevel()
{
    const bool media = CProductFeatures::hasMedia();
    Register(Enum(PARAM_ID(3G_SDILevel), "3G SDI Level", "3G Level")
                 .Default(media ? 0 : 2)
                 .Values({{0, "Level A"}, {1, "Level B-DL"}})
                 .ValuesIf(!media, {{2, "Follow Input"}})
                 .ValuesIf(media && CProductFeatures::isMultiChannel(), {{3, "Level B-DS"}})
                 .Description("Mapping of 1080p50 to 1080p60 on 3G SDI outputs."));
}

}  // namespace

/// Group 1: video outputs.
void CreateGroup_1()
{
    CreatePlaybackTypes();
    CreateConversions();
    if (CProductFeatures::isMultiChannel())
        CreateMultiChannelSDIOutputs();
    else
        CreateSDIOutput();
    CreateRGB();
    Create3GLevel();
}

}  // namespace vexa::config::catalogue
