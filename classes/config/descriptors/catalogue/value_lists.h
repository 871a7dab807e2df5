/// Value lists that several entries share. A number means the same thing in every list of its kind and on
/// every model, so that a preset or a script can move from one unit to another.
#pragma once

#include <initializer_list>

#include "config/descriptors/catalogue/entry.h"

namespace vexa::config::catalogue {

using ValueList = std::vector<NamedValue>;

/// 0 "Off", 1 "On".
ValueList OffOn();
/// "A" to "Z", from `first` upwards.
ValueList Letters(unsigned int first);

/// On a two-line panel that asked for it: each name broken into two lines, after its first slash or at its first
/// blank. Short names do not change. Elsewhere the list as it is.
ValueList TwoLines(ValueList values);

/// Video formats by raster; interlaced ones are named by their field rate, all others by their frame rate.
ValueList FormatsSD();
ValueList Formats720p();
ValueList Formats1080i();
ValueList Formats1080PsF();
/// 1080p at 23.98 to 30.
ValueList Formats1080p();
/// 1080p at 47.95 to 60.
ValueList Formats1080pHighRate();
/// 1080p at 100 to 120.
ValueList Formats1080pExtraHighRate();
ValueList Formats2K();
/// 3840 x 2160 at 23.98 to 30, and at 47.95 to 60.
ValueList Formats2160p();
ValueList Formats2160pHighRate();
/// 4096 x 2160 at 23.98 to 30, and at 47.95 to 60.
ValueList Formats4K();
ValueList Formats4KHighRate();
/// The SD and HD formats of the model; without SD on models that do not take it.
ValueList FormatsSDAndHD();

/// Defaults among the formats.
inline constexpr unsigned int kFormat1080i5994 = 11, kFormat1080p2398 = 20, kFormat2160p2398 = 40;

enum Codec : unsigned int {
    eCodec_ProRes422HQ = 0,
    eCodec_ProRes422 = 1,
    eCodec_ProRes422LT = 2,
    eCodec_ProRes422Proxy = 3,
    eCodec_ProRes4444 = 4,
    eCodec_ProRes4444XQ = 5,
    eCodec_DNxHD220x = 10,
    eCodec_DNxHD220 = 11,
    eCodec_DNxHD145 = 12,
    eCodec_DNxHD36 = 13,
    eCodec_DNxHRHQX = 15,
    eCodec_DNxHRHQ = 16,
    eCodec_DNxHRSQ = 17,
    eCodec_DNxHRLB = 18,
    eCodec_AVCIntra100 = 20,
    eCodec_AVCIntra50 = 21,
    eCodec_MPEG2HD422 = 25,
};
/// The encode types of a menu, in the given order.
ValueList Codecs(std::initializer_list<Codec> codecs);

enum Conversion : unsigned int {
    eConvert_Off = 0,
    eConvert_SDTo720p = 1,
    eConvert_SDTo1080i = 2,
    eConvert_720pTo1080i = 3,
    eConvert_1080iTo720p = 4,
    eConvert_720pTo1080p = 5,
    eConvert_1080iTo1080p = 6,
    eConvert_1080PsFTo1080p = 7,
    eConvert_HDToSDLetterbox = 8,
    eConvert_HDToSDCrop = 9,
    eConvert_HDToSDAnamorphic = 10,
    eConvert_1080pTo2160p = 11,
    eConvert_2160pTo1080p = 12,
    eConvert_4KTo2160pCrop = 13,
};
/// The conversions of a menu, in the given order; those from and to SD only on models that take SD.
ValueList Conversions(std::initializer_list<Conversion> conversions);

enum SdiLink : unsigned int {
    eSdiLink_Auto = 0,
    eSdiLink_Single15G = 1,
    eSdiLink_Dual15G = 2,
    eSdiLink_Single3G = 3,
    eSdiLink_Dual3G = 4,
    eSdiLink_Quad3G = 5,
    eSdiLink_Single6G = 6,
    eSdiLink_Single12G = 7,
};
ValueList SdiLinks(std::initializer_list<SdiLink> links);

/// Sources of recorded time code: those of every recorder, and RS-422 and FireWire where the unit has them.
ValueList TimecodeSources();
inline constexpr unsigned int kTimecodeSDI_VITC = 0, kTimecodeRS422 = 3, kTimecodeFireWire = 4,
                              kTimecodePresetValue = 5;

/// File systems of recording media.
ValueList FileSystems();
/// Condition of the media in the selected slot.
ValueList MediaStates();
/// States of one of the device's own programs.
ValueList ProcessStates();

}  // namespace vexa::config::catalogue
