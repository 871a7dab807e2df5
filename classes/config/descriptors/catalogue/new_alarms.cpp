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
                 kChannels = CProductFeatures::isMultiChannel, kUHD = CProductFeatures::canDoUHD,
                 kCamera = CProductFeatures::hasCameraData, kLut = CProductFeatures::hasLut,
                 kGenlock = CProductFeatures::hasGenlock, kFan = CProductFeatures::hasFan,
                 kTwoPS = CProductFeatures::has2ndPS, kVoltage = CProductFeatures::hasVoltageSensing;

/// Conditions under which the recorder raises and clears an alarm; "Key" is the record key.
constexpr const char *kRaiseRec = "raise_on_record", *kRaiseKey = "raise_on_record_pressed",
                     *kClearKey = "clear_on_record_pressed", *kClearPlay = "clear_on_play_pressed",
                     *kClearUser = "can_be_cleared", *kHidden = "hidden_param";

struct AlarmRow {
    eParam_t id;
    const char* idName;
    const char* shortName;
    alarms::Alarm_Severity severity;
    Models models;
    std::array<const char*, 3> classNames;
    const char* name = nullptr;  ///< null: the words of the symbolic name
};

#define ROW(name) PARAM_ID(name##_Alarm)
// clang-format off
constexpr AlarmRow kAlarms[] = {
    {ROW(SW_Error),                           "SW Err",   kError,    kAlways,   {kClearUser}},
    {ROW(Near_Under_Volt),                    "UndrVolt", kWarning,  kVoltage,  {}},
    {ROW(Near_Over_Volt),                     "OverVolt", kWarning,  kVoltage,  {}},
    {ROW(PS_1_OFF),                           "PS 1 Off", kWarning,  kTwoPS,    {}, "PS 1 Off"},
    {ROW(PS_2_OFF),                           "PS 2 Off", kWarning,  kTwoPS,    {}, "PS 2 Off"},
    {ROW(Storage_Removed),                    "StorRmvd", kError,    kMedia,    {kClearKey, kClearPlay}},
    {ROW(Invalid_Selection),                  "Inv Sel",  kWarning,  kAlways,   {kClearUser}},
    {ROW(Name_In_Use),                        "Name Use", kWarning,  kMedia,    {kRaiseKey, kClearKey}},
    {ROW(Record_Format),                      "Rec Fmt",  kError,    kMedia,    {kRaiseKey, kClearKey}},
    {ROW(Dropped_Frames),                     "Drop Frm", kError,    kMedia,    {kClearKey, kClearPlay, kClearUser}},
    {ROW(Near_Over_Temp),                     "OverTemp", kWarning,  kAlways,   {}},
    {ROW(Fan_Stopped),                        "Fan Stop", kCritical, kFan,      {}},
    {ROW(Input_Error),                        "In Err",   kError,    kAlways,   {kRaiseRec}},
    {ROW(Output_Error),                       "Out Err",  kError,    kAlways,   {}},
    {ROW(Max_Clips),                          "Max Clip", kError,    kMedia,    {kRaiseKey, kClearKey}},
    {ROW(Safe_Boot_Mode),                     "SafeBoot", kCritical, kAlways,   {}},
    {ROW(Media_Low),                          "MediaLow", kWarning,  kMedia,    {kRaiseRec}},
    {ROW(Media_Full),                         "MediaFul", kError,    kMedia,    {kRaiseKey, kClearPlay}},
    {ROW(AV_Mismatch),                        "AV Mism",  kWarning,  kMedia,    {kClearUser}},
    {ROW(Input_Format_Changed),               "In Fmt",   kWarning,  kAlways,   {kRaiseRec, kClearKey}},
    {ROW(No_Video_Input),                     "No Video", kError,    kAlways,   {kRaiseKey}},
    {ROW(Frame_Skipped),                      "Frm Skip", kWarning,  kPlayback, {kClearPlay, kClearUser}},
    {ROW(Media_Unformatted),                  "Unformat", kError,    kMedia,    {kRaiseKey}},
    {ROW(Media_Damaged),                      "Damaged",  kCritical, kMedia,    {kRaiseKey}},
    {ROW(Genlock_Missing),                    "No Genlk", kWarning,  kGenlock,  {}},
    {ROW(2_Channel_Format),                   "2Ch Fmt",  kError,    kChannels, {kRaiseKey, kClearKey}},
    {ROW(SDI_VFR_Mismatch),                   "SDI VFR",  kWarning,  kMedia,    {kRaiseKey}},
    {ROW(Genlock_Mismatch),                   "GenlkMis", kWarning,  kGenlock,  {}},
    {ROW(Non_VFR_Format),                     "Non VFR",  kWarning,  kMedia,    {kRaiseKey}},
    {ROW(No_Clip_Name),                       "No Name",  kError,    kMedia,    {kRaiseKey, kClearKey}},
    {ROW(Unsupported_Media_4KP60HQ),          "No 4K60",  kError,    kUHD,      {kRaiseKey}},
    {ROW(Rollover_Unsupported_Media_4KP60HQ), "RO 4K60",  kError,    kRollover, {kRaiseKey}},
    {ROW(No_Media_Installed),                 "No Media", kError,    kMedia,    {kRaiseKey, kClearPlay}},
    {ROW(Turn_Off_Camera_Data),               "Cam Data", kWarning,  kCamera,   {kRaiseKey, kClearUser}},
    {ROW(HQ_Not_Supported),                   "No HQ",    kError,    kMedia,    {kRaiseKey}},
    {ROW(BitRate_Not_Compatible),             "Bit Rate", kError,    kMedia,    {kRaiseKey}, "Bit Rate Not Compatible"},
    {ROW(Change_Encode_Mode),                 "Enc Mode", kWarning,  kMedia,    {kRaiseKey}},
    {ROW(Rollover_Media_Full),                "RO Full",  kError,    kRollover, {kRaiseRec}},
    {ROW(Rollover_Media_Low),                 "RO Low",   kWarning,  kRollover, {kRaiseRec}},
    {ROW(Rollover_Media_Unformatted),         "RO Unfmt", kWarning,  kRollover, {kRaiseKey}},
    {ROW(No_Rollover),                        "No RO",    kWarning,  kRollover, {kRaiseKey}},
    {ROW(Rollover_Media_Not_Empty),           "RO Used",  kWarning,  kRollover, {kRaiseKey}},
    {ROW(LUT),                                "LUT",      kWarning,  kLut,      {kClearUser}},
    {ROW(Safeboot),                           "Safeboot", kCritical, kAlways,   {kHidden}},
    {ROW(Record_Inhibited),                   "Rec Inh",  kError,    kMedia,    {kRaiseKey, kClearKey}},
    {ROW(MXF_Record_Inhibited),               "MXF Inh",  kError,    kMedia,    {kRaiseKey, kClearKey}},
    {ROW(Interval_Record_Enabled),            "Interval", kInfo,     kMedia,    {kRaiseKey, kHidden}},
    {ROW(ProRes_MultiChnl_Record_Format),     "PR MC",    kError,    kChannels, {kRaiseKey}},
    {ROW(Infinite_Record),                    "Inf Rec",  kInfo,     kMedia,    {kRaiseRec, kHidden}},
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

void CreateAlarm(const AlarmRow& row)
{
    AlarmEntry entry(row.id, row.idName, row.name ? row.name : WordsOf(row.idName), row.shortName);
    entry.Command().Default(AtRest(row.severity)).ClassName("protobuf_message");
    for (const char* const name : row.classNames)
        if (name) entry.ClassName(name);
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
