#include <algorithm>
#include <array>
#include <string_view>

#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"
#include "messages/alarm.pb.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

using alarms::Alarm;

constexpr auto kInfo = Alarm::INFORMATION, kWarning = Alarm::WARNING, kError = Alarm::ERROR,
               kCritical = Alarm::CRITICAL;

/// The models on which an alarm exists, as a predicate; null for all models.
using Models = bool (*)();
constexpr Models kAlways = nullptr, kMedia = CProductFeatures::hasMedia,
                 kPlayback = CProductFeatures::canDoPlayback, kRollover = CProductFeatures::canDoRollover,
                 kChannels = CProductFeatures::isMultiChannel, kUHD60 = CProductFeatures::recordsUHD60,
                 kInterval = CProductFeatures::canDoInterval, kCamera = CProductFeatures::hasCameraData,
                 kLut = CProductFeatures::hasLut, kGenlock = CProductFeatures::hasGenlock,
                 kFan = CProductFeatures::hasFan, kTwoPS = CProductFeatures::has2ndPS,
                 kVoltage = CProductFeatures::hasVoltageSensing;

bool RollsOverUHD60()
{
    return CProductFeatures::canDoRollover() && CProductFeatures::recordsUHD60();
}

/// Conditions under which the recorder raises and clears an alarm; "Key" is the record key. An alarm of a unit that
/// cannot record or play goes without them, so that its own components alone raise and clear it.
constexpr const char *kRaiseRec = "raise_on_record", *kRaiseKey = "raise_on_record_pressed",
                     *kClearKey = "clear_on_record_pressed", *kClearPlay = "clear_on_play_pressed",
                     *kClearUser = "can_be_cleared", *kHidden = "hidden_param";

struct AlarmRow {
    alarms::Alarm_Severity severity;
    eParam_t id;
    const char* idName;
    const char* shortName;
    Models models;
    std::array<const char*, 3> classNames;
    const char* name = nullptr;  ///< null: the words of the symbolic name
};

#define ROW(name) PARAM_ID(name##_Alarm)
// clang-format off
constexpr AlarmRow kAlarms[] = {
    {kError,    ROW(SW_Error),                           "SW Err",   kAlways,   {kClearUser}},
    {kWarning,  ROW(Near_Under_Volt),                    "UndrVolt", kVoltage,  {}},
    {kWarning,  ROW(Near_Over_Volt),                     "OverVolt", kVoltage,  {}},
    {kWarning,  ROW(PS_1_OFF),                           "PS 1 Off", kTwoPS,    {}, "PS 1 Off"},
    {kWarning,  ROW(PS_2_OFF),                           "PS 2 Off", kTwoPS,    {}, "PS 2 Off"},
    {kError,    ROW(Storage_Removed),                    "StorRmvd", kMedia,    {kClearKey, kClearPlay}},
    {kWarning,  ROW(Invalid_Selection),                  "Inv Sel",  kAlways,   {kClearUser}},
    {kWarning,  ROW(Name_In_Use),                        "Name Use", kMedia,    {kRaiseKey, kClearKey}},
    {kError,    ROW(Record_Format),                      "Rec Fmt",  kMedia,    {kRaiseKey, kClearKey}},
    {kError,    ROW(Dropped_Frames),                     "Drop Frm", kMedia,    {kClearKey, kClearPlay, kClearUser}},
    {kWarning,  ROW(Near_Over_Temp),                     "OverTemp", kAlways,   {}},
    {kCritical, ROW(Fan_Stopped),                        "Fan Stop", kFan,      {}},
    {kError,    ROW(Input_Error),                        "In Err",   kAlways,   {kRaiseRec}},
    {kError,    ROW(Output_Error),                       "Out Err",  kAlways,   {}},
    {kError,    ROW(Max_Clips),                          "Max Clip", kMedia,    {kRaiseKey, kClearKey}},
    {kCritical, ROW(Safe_Boot_Mode),                     "SafeBoot", kAlways,   {}},
    {kWarning,  ROW(Media_Low),                          "MediaLow", kMedia,    {kRaiseRec}},
    {kError,    ROW(Media_Full),                         "MediaFul", kMedia,    {kRaiseKey, kClearPlay}},
    {kWarning,  ROW(AV_Mismatch),                        "AV Mism",  kMedia,    {kClearUser}},
    {kWarning,  ROW(Input_Format_Changed),               "Fmt Chgd", kAlways,   {kRaiseRec, kClearKey}},
    {kError,    ROW(No_Video_Input),                     "No Video", kAlways,   {kRaiseKey}},
    {kWarning,  ROW(Frame_Skipped),                      "Frm Skip", kPlayback, {kClearPlay, kClearUser}},
    {kError,    ROW(Media_Unformatted),                  "Unformat", kMedia,    {kRaiseKey}},
    {kCritical, ROW(Media_Damaged),                      "Damaged",  kMedia,    {kRaiseKey}},
    {kWarning,  ROW(Genlock_Missing),                    "No Genlk", kGenlock,  {}},
    {kError,    ROW(2_Channel_Format),                   "2Ch Fmt",  kChannels, {kRaiseKey, kClearKey}},
    {kWarning,  ROW(SDI_VFR_Mismatch),                   "SDI VFR",  kMedia,    {kRaiseKey}},
    {kWarning,  ROW(Genlock_Mismatch),                   "GenlkMis", kGenlock,  {}},
    {kWarning,  ROW(Non_VFR_Format),                     "Non VFR",  kMedia,    {kRaiseKey}},
    {kError,    ROW(No_Clip_Name),                       "No Name",  kMedia,    {kRaiseKey, kClearKey}},
    {kError,    ROW(Unsupported_Media_4KP60HQ),          "No 4K60",  kUHD60,     {kRaiseKey}},
    {kError,    ROW(Rollover_Unsupported_Media_4KP60HQ), "RO 4K60",  RollsOverUHD60, {kRaiseKey}},
    {kError,    ROW(No_Media_Installed),                 "No Media", kMedia,    {kRaiseKey, kClearPlay}},
    {kWarning,  ROW(Turn_Off_Camera_Data),               "Cam Off",  kCamera,   {kRaiseKey, kClearUser}},
    {kError,    ROW(HQ_Not_Supported),                   "No HQ",    kMedia,    {kRaiseKey}},
    {kError,    ROW(BitRate_Not_Compatible),             "Bit Rate", kMedia,    {kRaiseKey}, "Bit Rate Not Compatible"},
    {kWarning,  ROW(Change_Encode_Mode),                 "Enc Mode", kMedia,    {kRaiseKey}},
    {kError,    ROW(Rollover_Media_Full),                "RO Full",  kRollover, {kRaiseRec}},
    {kWarning,  ROW(Rollover_Media_Low),                 "RO Low",   kRollover, {kRaiseRec}},
    {kWarning,  ROW(Rollover_Media_Unformatted),         "RO Unfmt", kRollover, {kRaiseKey}},
    {kWarning,  ROW(No_Rollover),                        "No RO",    kRollover, {kRaiseKey}},
    {kWarning,  ROW(Rollover_Media_Not_Empty),           "RO Used",  kRollover, {kRaiseKey}},
    {kWarning,  ROW(LUT),                                "LUT Err",  kLut,      {kClearUser}},
    {kCritical, ROW(Safeboot),                           "Safeboot", kAlways,   {kHidden}},
    {kError,    ROW(Record_Inhibited),                   "Rec Inh",  kMedia,    {kRaiseKey, kClearKey}},
    {kError,    ROW(MXF_Record_Inhibited),               "MXF Inh",  kMedia,    {kRaiseKey, kClearKey}},
    {kInfo,     ROW(Interval_Record_Enabled),            "Interval", kInterval, {kRaiseKey, kHidden}},
    {kError,    ROW(ProRes_MultiChnl_Record_Format),     "PR MC",    kChannels, {kRaiseKey}},
    {kInfo,     ROW(Infinite_Record),                    "Inf Rec",  kMedia,    {kRaiseRec, kHidden}},
};
// clang-format on
#undef ROW

/// "Media Low" of "eParamID_Media_Low_Alarm".
std::string WordsOf(std::string_view idName)
{
    idName.remove_prefix(std::string_view("eParamID_").size());
    idName.remove_suffix(std::string_view("_Alarm").size());
    std::string words(idName);
    std::ranges::replace(words, '_', ' ');
    return words;
}

/// The value of an alarm that was never raised.
std::string AtRest(alarms::Alarm_Severity severity)
{
    Alarm alarm;
    alarm.set_state(Alarm::CLEAR);
    alarm.set_severity(severity);
    return alarm.SerializeAsString();
}

bool Applies(std::string_view className)
{
    if (className == kRaiseRec || className == kRaiseKey || className == kClearKey)
        return CProductFeatures::hasMedia();
    return className != kClearPlay || CProductFeatures::canDoPlayback();
}

void CreateAlarm(const AlarmRow& row)
{
    AlarmEntry entry(row.id, row.idName, row.name ? row.name : WordsOf(row.idName), row.shortName);
    entry.Command().Default(AtRest(row.severity)).ClassName("protobuf_message");
    for (const char* const name : row.classNames)
        if (name) entry.ClassNameIf(Applies(name), name);
    entry.Attribute("Content-Type", "application/vnd.google.protobuf")
        .Description("Alarm (protobuf encoded)");
    Register(entry);
}

}  // namespace

/// Alarms. The component that owns a condition raises and clears its alarm through services/alarms.
void CreateGroup_NewAlarms()
{
    for (const AlarmRow& row : kAlarms)
        if (!row.models || row.models()) CreateAlarm(row);
}

}  // namespace vexa::config::catalogue
