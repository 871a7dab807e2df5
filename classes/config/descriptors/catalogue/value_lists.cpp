#include "config/descriptors/catalogue/value_lists.h"

#include <iterator>

#include "config/descriptors/descriptor_table.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

/// Ten frame rates of one raster: the first five up to 30, the others from 47.95 to 60.
constexpr const char* kFrameRates[] = {"23.98", "24", "25", "29.97", "30",
                                       "47.95", "48", "50", "59.94", "60"};

/// The formats of `raster` at the rates from..to of kFrameRates; the number of a format is base + rate.
ValueList ProgressiveFormats(const char* raster, unsigned int base, unsigned int from, unsigned int to)
{
    ValueList formats;
    for (unsigned int rate = from; rate <= to; ++rate)
        formats.push_back({base + rate, std::string(raster) + kFrameRates[rate]});
    return formats;
}

void Append(ValueList& list, ValueList more)
{
    std::ranges::move(more, std::back_inserter(list));
}

/// The rows of `table` with the given numbers, in the order of the numbers.
template <class Number>
ValueList Pick(const ValueList& table, std::initializer_list<Number> numbers)
{
    ValueList picked;
    for (const Number number : numbers)
        picked.push_back(*std::ranges::find(table, static_cast<unsigned int>(number), &NamedValue::value));
    return picked;
}

bool TouchesSD(Conversion conversion)
{
    return conversion == eConvert_SDTo720p || conversion == eConvert_SDTo1080i ||
           conversion == eConvert_HDToSDLetterbox || conversion == eConvert_HDToSDCrop ||
           conversion == eConvert_HDToSDAnamorphic;
}

}  // namespace

ValueList OffOn()
{
    return {{0, "Off"}, {1, "On"}};
}

ValueList Letters(unsigned int first)
{
    ValueList letters;
    for (unsigned int i = 0; i < 26; ++i)
        letters.push_back({first + i, std::string(1, static_cast<char>('A' + i))});
    return letters;
}

ValueList TwoLines(ValueList values)
{
    if (!CProductFeatures::hasTwoLinePanel() || !GetEncodeDescriptors()) return values;
    for (NamedValue& value : values) {
        const size_t end = value.name.find_first_of(" /");
        if (end == std::string::npos) continue;
        const bool blank = value.name[end] == ' ';
        value.name.replace(blank ? end : end + 1, blank ? 1 : 0, "\n  ");
    }
    return values;
}

// clang-format off
ValueList FormatsSD()                 { return {{1, "525i59.94"}, {2, "625i50"}}; }
ValueList Formats720p()               { return {{3, "720p50"}, {4, "720p59.94"}, {5, "720p60"}}; }
ValueList Formats1080i()              { return {{10, "1080i50"}, {11, "1080i59.94"}, {12, "1080i60"}}; }
ValueList Formats1080PsF()            { return ProgressiveFormats("1080PsF", 13, 0, 4); }
ValueList Formats1080p()              { return ProgressiveFormats("1080p", 20, 0, 4); }
ValueList Formats1080pHighRate()      { return ProgressiveFormats("1080p", 20, 5, 9); }
ValueList Formats1080pExtraHighRate() { return {{60, "1080p100"}, {61, "1080p119.88"}, {62, "1080p120"}}; }
ValueList Formats2K()                 { return ProgressiveFormats("2Kp", 30, 0, 9); }
ValueList Formats2160p()              { return ProgressiveFormats("2160p", 40, 0, 4); }
ValueList Formats2160pHighRate()      { return ProgressiveFormats("2160p", 40, 5, 9); }
ValueList Formats4K()                 { return ProgressiveFormats("4Kp", 50, 0, 4); }
ValueList Formats4KHighRate()         { return ProgressiveFormats("4Kp", 50, 5, 9); }
// clang-format on

ValueList FormatsSDAndHD()
{
    ValueList formats;
    if (CProductFeatures::canDoHeight(480)) Append(formats, FormatsSD());
    Append(formats, Formats720p());
    Append(formats, Formats1080i());
    Append(formats, Formats1080PsF());
    Append(formats, Formats1080p());
    Append(formats, Formats1080pHighRate());
    return formats;
}

ValueList Codecs(std::initializer_list<Codec> codecs)
{
    static const ValueList table = {
        {eCodec_ProRes422HQ, "ProRes 422 HQ", "PR HQ"},
        {eCodec_ProRes422, "ProRes 422", "PR 422"},
        {eCodec_ProRes422LT, "ProRes 422 LT", "PR LT"},
        {eCodec_ProRes422Proxy, "ProRes 422 Proxy", "PR Proxy"},
        {eCodec_ProRes4444, "ProRes 4444", "PR 4444"},
        {eCodec_ProRes4444XQ, "ProRes 4444 XQ", "PR XQ"},
        {eCodec_DNxHD220x, "DNxHD 220x", "DNx 220x"},
        {eCodec_DNxHD220, "DNxHD 220", "DNx 220"},
        {eCodec_DNxHD145, "DNxHD 145", "DNx 145"},
        {eCodec_DNxHD36, "DNxHD 36", "DNx 36"},
        {eCodec_DNxHRHQX, "DNxHR HQX", "DNxR HQX"},
        {eCodec_DNxHRHQ, "DNxHR HQ", "DNxR HQ"},
        {eCodec_DNxHRSQ, "DNxHR SQ", "DNxR SQ"},
        {eCodec_DNxHRLB, "DNxHR LB", "DNxR LB"},
        {eCodec_AVCIntra100, "AVC-Intra 100", "AVCI 100"},
        {eCodec_AVCIntra50, "AVC-Intra 50", "AVCI 50"},
        {eCodec_MPEG2HD422, "MPEG-2 HD422", "HD422"},
    };
    return Pick(table, codecs);
}

ValueList Conversions(std::initializer_list<Conversion> conversions)
{
    static const ValueList table = {
        {eConvert_Off, "Off"},
        {eConvert_SDTo720p, "SD to 720p", "SD>720"},
        {eConvert_SDTo1080i, "SD to 1080i", "SD>1080"},
        {eConvert_720pTo1080i, "720p to 1080i", "720>1080i"},
        {eConvert_1080iTo720p, "1080i to 720p", "1080i>720"},
        {eConvert_720pTo1080p, "720p to 1080p", "720>1080p"},
        {eConvert_1080iTo1080p, "1080i to 1080p", "1080i>p"},
        {eConvert_1080PsFTo1080p, "1080PsF to 1080p", "PsF>p"},
        {eConvert_HDToSDLetterbox, "HD to SD Letterbox", "SD Ltrbx"},
        {eConvert_HDToSDCrop, "HD to SD Crop", "SD Crop"},
        {eConvert_HDToSDAnamorphic, "HD to SD Anamorphic", "SD Anam"},
        {eConvert_1080pTo2160p, "1080p to 2160p", "HD>UHD"},
        {eConvert_2160pTo1080p, "2160p to 1080p", "UHD>HD"},
        {eConvert_4KTo2160pCrop, "4K to 2160p Crop", "4K>UHD"},
    };
    ValueList picked = Pick(table, conversions);
    if (!CProductFeatures::canDoHeight(480))
        std::erase_if(picked,
                      [](const NamedValue& v) { return TouchesSD(static_cast<Conversion>(v.value)); });
    return picked;
}

ValueList SdiLinks(std::initializer_list<SdiLink> links)
{
    static const ValueList table = {
        {eSdiLink_Auto, "Auto"},
        {eSdiLink_Single15G, "1.5G Single Link", "1.5G"},
        {eSdiLink_Dual15G, "1.5G Dual Link", "1.5G DL"},
        {eSdiLink_Single3G, "3G Single Link", "3G"},
        {eSdiLink_Dual3G, "3G Dual Link", "3G DL"},
        {eSdiLink_Quad3G, "3G Quad Link", "3G QL"},
        {eSdiLink_Single6G, "6G Single Link", "6G"},
        {eSdiLink_Single12G, "12G Single Link", "12G"},
    };
    return Pick(table, links);
}

ValueList TimecodeSources()
{
    ValueList sources = {{kTimecodeSDI_VITC, "SDI VITC"}, {1, "SDI LTC"}, {2, "LTC Input"}};
    if (CProductFeatures::hasRS422()) sources.push_back({kTimecodeRS422, "RS-422"});
    if (CProductFeatures::hasFireWire()) sources.push_back({kTimecodeFireWire, "FireWire"});
    sources.push_back({kTimecodePresetValue, "Preset Value"});
    sources.push_back({6, "Continue Last"});
    sources.push_back({7, "Time of Day"});
    return sources;
}

ValueList FileSystems()
{
    ValueList systems = {{0, "exFAT"}, {1, "UDF"}};
    if (CProductFeatures::usesFlashFileSystem()) systems.push_back({2, "FAT32"});
    return systems;
}

ValueList MediaStates()
{
    return {{0, "No Media"}, {1, "Loading"}, {2, "Ready"},   {3, "Recording"},
            {4, "Playing"},  {5, "Full"},    {6, "Damaged"}, {7, "Unformatted"}};
}

ValueList ProcessStates()
{
    return {{0, "Not Running"}, {1, "Starting"}, {2, "Running"}, {3, "Stopping"}, {4, "Failed"}};
}

}  // namespace vexa::config::catalogue
