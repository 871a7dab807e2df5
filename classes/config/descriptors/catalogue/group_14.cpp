#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "config/descriptors/descriptor_table.h"
#include "services/product/product_features.h"
#include "services/product/product_id.h"

namespace vexa::config::catalogue {

namespace {

constexpr const char* kEncodeType = "Codec in which the present input is recorded.";

void CreateEncodeType()
{
    if (CProductID::isOAK()) {
        Register(Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_ProRes4444XQ,
                                     eCodec_DNxHRHQX, eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB}))
                     .Description(kEncodeType));
    } else if (CProductID::isROWAN()) {
        Register(Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_DNxHRHQX,
                                     eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB}))
                     .DisabledBy(eParamID_RecordType, 1)
                     .Description(kEncodeType));
    } else if (CProductFeatures::hasTwoLinePanel() && GetEncodeDescriptors()) {
        Register(Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                     .Values({{eCodec_ProRes422HQ, "ProRes\n  422 HQ"},
                              {eCodec_ProRes422, "ProRes\n  422"},
                              {eCodec_ProRes422LT, "ProRes\n  422 LT"},
                              {eCodec_ProRes422Proxy, "ProRes\n  422 Proxy"},
                              {eCodec_ProRes4444, "ProRes\n  4444"},
                              {eCodec_DNxHRHQ, "DNxHR\n  HQ"},
                              {eCodec_DNxHRSQ, "DNxHR\n  SQ"},
                              {eCodec_DNxHRLB, "DNxHR\n  LB"}})
                     .Description(kEncodeType));
    } else if (CProductID::isBIRCH()) {
        Register(Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_DNxHRHQ, eCodec_DNxHRSQ,
                                     eCodec_DNxHRLB}))
                     .Description(kEncodeType));
    } else if (CProductID::isCEDAR()) {
        Register(
            Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                eCodec_ProRes422Proxy, eCodec_DNxHD220x, eCodec_DNxHD145, eCodec_DNxHD36}))
                .DisabledBy(eParamID_RecordType, 1)
                .Description(kEncodeType));
    } else if (CProductID::isMAPLE()) {
        Register(Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_ProRes4444XQ,
                                     eCodec_DNxHD220x, eCodec_DNxHD36}))
                     .Description(kEncodeType));
    } else if (CProductID::isWILLOW()) {
        Register(Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_DNxHD220x, eCodec_DNxHD220, eCodec_DNxHD145, eCodec_AVCIntra100,
                                     eCodec_AVCIntra50, eCodec_MPEG2HD422}))
                     .Description(kEncodeType));
    } else if (CProductID::isALDER()) {
        Register(
            Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                eCodec_ProRes422Proxy, eCodec_DNxHD220x, eCodec_DNxHD145, eCodec_DNxHD36}))
                .Description(kEncodeType));
    } else {
        Register(Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                     .Values(Codecs(
                         {eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy}))
                     .Description(kEncodeType));
    }
}

/// The codec of each channel while several are recorded at once; a 12G unit can also give each channel DNxHR.
void CreateMultiChannelEncodeTypes()
{
    const ValueList hd =
        Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy});
    const ValueList uhd = Codecs({eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB});
    if (CProductFeatures::has12G()) {
        Register(Enum(PARAM_ID(EncodeType_MultiChnl_Ch1), "Encode Type Ch1", "Enc Ch1")
                     .Values(hd)
                     .Values(uhd)
                     .Default(eCodec_ProRes422)
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel 1 of a multi-channel recording is recorded."));
        Register(Enum(PARAM_ID(EncodeType_MultiChnl_Ch2), "Encode Type Ch2", "Enc Ch2")
                     .Values(hd)
                     .Values(uhd)
                     .Default(eCodec_ProRes422)
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel 2 of a multi-channel recording is recorded."));
        Register(Enum(PARAM_ID(EncodeType_MultiChnl_Ch3), "Encode Type Ch3", "Enc Ch3")
                     .Values(hd)
                     .Values(uhd)
                     .Default(eCodec_ProRes422)
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel 3 of a multi-channel recording is recorded."));
        Register(Enum(PARAM_ID(EncodeType_MultiChnl_Ch4), "Encode Type Ch4", "Enc Ch4")
                     .Values(hd)
                     .Values(uhd)
                     .Default(eCodec_ProRes422)
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel 4 of a multi-channel recording is recorded."));
    } else {
        Register(Enum(PARAM_ID(EncodeType_MultiChnl_Ch1), "Encode Type Ch1", "Enc Ch1")
                     .Values(hd)
                     .Default(eCodec_ProRes422)
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel 1 of a multi-channel recording is recorded."));
        Register(Enum(PARAM_ID(EncodeType_MultiChnl_Ch2), "Encode Type Ch2", "Enc Ch2")
                     .Values(hd)
                     .Default(eCodec_ProRes422)
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel 2 of a multi-channel recording is recorded."));
        Register(Enum(PARAM_ID(EncodeType_MultiChnl_Ch3), "Encode Type Ch3", "Enc Ch3")
                     .Values(hd)
                     .Default(eCodec_ProRes422)
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel 3 of a multi-channel recording is recorded."));
        Register(Enum(PARAM_ID(EncodeType_MultiChnl_Ch4), "Encode Type Ch4", "Enc Ch4")
                     .Values(hd)
                     .Default(eCodec_ProRes422)
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel 4 of a multi-channel recording is recorded."));
    }
}

/// Above 30 frames per second a model may record fewer codecs than below, so each range of rates keeps its
/// own choice and the encode type follows the input.
void CreateEncodeTypesByRate()
{
    constexpr const char* kHigh = "Codec that the encode type takes at 47.95 to 60 frames per second.";
    if (CProductID::isOAK()) {
        Register(Enum(PARAM_ID(EncodeType_High_FR), "Encode Type High Frame Rate", "Enc HiFR")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_DNxHRHQX,
                                     eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB}))
                     .Dependent(eParamID_EncodeType)
                     .Description(kHigh));
    } else if (CProductID::isROWAN()) {
        Register(Enum(PARAM_ID(EncodeType_High_FR), "Encode Type High Frame Rate", "Enc HiFR")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB}))
                     .Dependent(eParamID_EncodeType)
                     .Description(kHigh));
    } else if (CProductID::isBIRCH()) {
        Register(Enum(PARAM_ID(EncodeType_High_FR), "Encode Type High Frame Rate", "Enc HiFR")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_DNxHRSQ, eCodec_DNxHRLB}))
                     .Default(eCodec_ProRes422)
                     .Dependent(eParamID_EncodeType)
                     .Description(kHigh));
    } else if (CProductID::isMAPLE()) {
        Register(Enum(PARAM_ID(EncodeType_High_FR), "Encode Type High Frame Rate", "Enc HiFR")
                     .Values(Codecs(
                         {eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy, eCodec_DNxHD220x}))
                     .Default(eCodec_ProRes422)
                     .Dependent(eParamID_EncodeType)
                     .Description(kHigh));
    }

    constexpr const char* kLow = "Codec that the encode type takes up to 30 frames per second.";
    if (CProductID::isOAK()) {
        Register(Enum(PARAM_ID(EncodeType_Low_FR), "Encode Type Low Frame Rate", "Enc LoFR")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_ProRes4444XQ,
                                     eCodec_DNxHRHQX, eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB}))
                     .Dependent(eParamID_EncodeType)
                     .Description(kLow));
    } else if (CProductID::isROWAN()) {
        Register(Enum(PARAM_ID(EncodeType_Low_FR), "Encode Type Low Frame Rate", "Enc LoFR")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_DNxHRHQX,
                                     eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB}))
                     .Dependent(eParamID_EncodeType)
                     .Description(kLow));
    } else if (CProductID::isBIRCH()) {
        Register(Enum(PARAM_ID(EncodeType_Low_FR), "Encode Type Low Frame Rate", "Enc LoFR")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_DNxHRHQ, eCodec_DNxHRSQ,
                                     eCodec_DNxHRLB}))
                     .Dependent(eParamID_EncodeType)
                     .Description(kLow));
    } else if (CProductID::isMAPLE()) {
        Register(Enum(PARAM_ID(EncodeType_Low_FR), "Encode Type Low Frame Rate", "Enc LoFR")
                     .Values(Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT,
                                     eCodec_ProRes422Proxy, eCodec_ProRes4444, eCodec_ProRes4444XQ,
                                     eCodec_DNxHD36}))
                     .Dependent(eParamID_EncodeType)
                     .Description(kLow));
    }

    constexpr const char* kExtraHigh = "Codec that the encode type takes at 100 to 120 frames per second.";
    if (CProductID::isOAK()) {
        Register(Enum(PARAM_ID(EncodeType_XHi_FR), "Encode Type Extra High Frame Rate", "Enc XHFR")
                     .Values(Codecs(
                         {eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy}))
                     .Default(eCodec_ProRes422)
                     .Dependent(eParamID_EncodeType)
                     .Description(kExtraHigh));
    } else if (CProductID::isROWAN()) {
        Register(Enum(PARAM_ID(EncodeType_XHi_FR), "Encode Type Extra High Frame Rate", "Enc XHFR")
                     .Values(Codecs({eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy}))
                     .Default(eCodec_ProRes422)
                     .Dependent(eParamID_EncodeType)
                     .Description(kExtraHigh));
    } else if (CProductID::isBIRCH()) {
        Register(Enum(PARAM_ID(EncodeType_XHi_FR), "Encode Type Extra High Frame Rate", "Enc XHFR")
                     .Values(Codecs({eCodec_ProRes422LT, eCodec_ProRes422Proxy}))
                     .Default(eCodec_ProRes422LT)
                     .Dependent(eParamID_EncodeType)
                     .Description(kExtraHigh));
    }

    if (CProductID::isBIRCH() || CProductID::isOAK()) {
        Register(
            Enum(PARAM_ID(EncodeType_High_FR_SlowSSD), "Encode Type High Frame Rate Slow SSD", "Enc Slow")
                .Values(Codecs({eCodec_ProRes422LT, eCodec_ProRes422Proxy}))
                .Default(eCodec_ProRes422LT)
                .Description("Codec for 47.95 to 60 frames per second on media too slow for the others."));
    }
}

}  // namespace

/// Group 14: encode types.
void CreateGroup_14()
{
    if (!CProductFeatures::hasMedia()) return;

    CreateEncodeType();
    if (CProductFeatures::isMultiChannel()) CreateMultiChannelEncodeTypes();
    CreateEncodeTypesByRate();
}

}  // namespace vexa::config::catalogue
