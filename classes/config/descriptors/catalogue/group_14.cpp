#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"
#include "services/product/product_id.h"

namespace vexa::config::catalogue {

namespace {

ValueList EncodeTypes()
{
    if (CProductID::isOAK())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_ProRes4444, eCodec_ProRes4444XQ, eCodec_DNxHRHQX, eCodec_DNxHRHQ,
                       eCodec_DNxHRSQ, eCodec_DNxHRLB});
    if (CProductID::isROWAN())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_ProRes4444, eCodec_DNxHRHQX, eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB});
    if (CProductID::isBIRCH())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_ProRes4444, eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB});
    if (CProductID::isCEDAR() || CProductID::isALDER())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_DNxHD220x, eCodec_DNxHD145, eCodec_DNxHD36});
    if (CProductID::isMAPLE())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_ProRes4444, eCodec_ProRes4444XQ, eCodec_DNxHD220x, eCodec_DNxHD36});
    if (CProductID::isWILLOW())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_DNxHD220x,
                       eCodec_DNxHD220, eCodec_DNxHD145, eCodec_AVCIntra100, eCodec_AVCIntra50,
                       eCodec_MPEG2HD422});
    return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy});
}

/// Above 30 frames per second a model may record fewer codecs than below. Empty where all rates are alike.
ValueList HighRateEncodeTypes()
{
    if (CProductID::isOAK())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_ProRes4444, eCodec_DNxHRHQX, eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB});
    if (CProductID::isROWAN())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB});
    if (CProductID::isBIRCH())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_DNxHRSQ, eCodec_DNxHRLB});
    if (CProductID::isMAPLE())
        return Codecs({eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy, eCodec_DNxHD220x});
    return {};
}

ValueList LowRateEncodeTypes()
{
    if (CProductID::isMAPLE())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy,
                       eCodec_ProRes4444, eCodec_ProRes4444XQ, eCodec_DNxHD36});
    return EncodeTypes();
}

/// Empty on models that cannot record 100 to 120 frames per second.
ValueList ExtraHighRateEncodeTypes()
{
    if (CProductID::isOAK())
        return Codecs({eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy});
    if (CProductID::isROWAN()) return Codecs({eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy});
    if (CProductID::isBIRCH()) return Codecs({eCodec_ProRes422LT, eCodec_ProRes422Proxy});
    return {};
}

/// The codec of each channel while several are recorded at once; a 12G unit can also give each channel DNxHR.
void CreateMultiChannelEncodeTypes()
{
    constexpr ParamName kChannels[] = {{PARAM_ID(EncodeType_MultiChnl_Ch1)},
                                       {PARAM_ID(EncodeType_MultiChnl_Ch2)},
                                       {PARAM_ID(EncodeType_MultiChnl_Ch3)},
                                       {PARAM_ID(EncodeType_MultiChnl_Ch4)}};
    unsigned int channel = 0;
    for (const auto& [id, idName] : kChannels) {
        const std::string number = std::to_string(++channel);
        Register(Enum(id, idName, "Encode Type Ch" + number, "Enc Ch" + number)
                     .Default(eCodec_ProRes422)
                     .Values(Codecs(
                         {eCodec_ProRes422HQ, eCodec_ProRes422, eCodec_ProRes422LT, eCodec_ProRes422Proxy}))
                     .ValuesIf(CProductFeatures::has12G(),
                               Codecs({eCodec_DNxHRHQ, eCodec_DNxHRSQ, eCodec_DNxHRLB}))
                     .EnabledBy(eParamID_RecordType, 1)
                     .Description("Codec in which channel " + number +
                                  " of a multi-channel recording is recorded."));
    }
}

/// Where the codecs depend on the frame rate, each range of rates keeps its own choice and the encode type
/// follows the input.
void CreateEncodeTypesByRate()
{
    const ValueList high = HighRateEncodeTypes(), extraHigh = ExtraHighRateEncodeTypes();
    if (!high.empty()) {
        const bool lighter = CProductID::isBIRCH() || CProductID::isMAPLE();
        Register(Enum(PARAM_ID(EncodeType_High_FR), "Encode Type High Frame Rate", "Enc HiFR")
                     .Default(lighter ? eCodec_ProRes422 : eCodec_ProRes422HQ)
                     .Values(high)
                     .Dependent(eParamID_EncodeType)
                     .Description("Codec that the encode type takes at 47.95 to 60 frames per second."));
        Register(Enum(PARAM_ID(EncodeType_Low_FR), "Encode Type Low Frame Rate", "Enc LoFR")
                     .Values(LowRateEncodeTypes())
                     .Dependent(eParamID_EncodeType)
                     .Description("Codec that the encode type takes up to 30 frames per second."));
    }
    if (!extraHigh.empty()) {
        Register(Enum(PARAM_ID(EncodeType_XHi_FR), "Encode Type Extra High Frame Rate", "Enc XHFR")
                     .Default(CProductID::isBIRCH() ? eCodec_ProRes422LT : eCodec_ProRes422)
                     .Values(extraHigh)
                     .Dependent(eParamID_EncodeType)
                     .Description("Codec that the encode type takes at 100 to 120 frames per second."));
    }
    if (CProductID::isBIRCH() || CProductID::isOAK()) {
        Register(
            Enum(PARAM_ID(EncodeType_High_FR_SlowSSD), "Encode Type High Frame Rate Slow SSD", "Enc Slow")
                .Default(eCodec_ProRes422LT)
                .Values(Codecs({eCodec_ProRes422LT, eCodec_ProRes422Proxy}))
                .Description("Codec for 47.95 to 60 frames per second on media too slow for the others."));
    }
}

}  // namespace

/// Group 14: encode types.
void CreateGroup_14()
{
    if (!CProductFeatures::hasMedia()) return;

    const bool channels = CProductFeatures::isMultiChannel();
    Register(Enum(PARAM_ID(EncodeType), "Encode Type", "Encode")
                 .Values(TwoLines(EncodeTypes()))
                 .DisabledByIf(channels, eParamID_RecordType, 1)
                 .Description("Codec in which the present input is recorded."));
    if (channels) CreateMultiChannelEncodeTypes();
    CreateEncodeTypesByRate();
}

}  // namespace vexa::config::catalogue
