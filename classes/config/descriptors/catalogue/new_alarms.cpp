#include <array>

#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"
#include "messages/alarm.pb.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

using Product = CProductFeatures;
using alarms::Alarm;

/// One alarm. Its class names tell when the recorder raises and clears it.
struct AlarmRow {
    eParam_t id;
    const char* idName;
    const char* name;
    const char* shortName;
    alarms::Alarm_Severity severity;
    bool (*onThisModel)();  ///< null: on every model
    std::array<const char*, 3> classNames;
};

// clang-format off
constexpr AlarmRow kAlarms[] = {
    {PARAM_ID(SW_Error_Alarm), "SW Error", "SW Err", Alarm::ERROR, nullptr, {"can_be_cleared"}},
    {PARAM_ID(Near_Under_Volt_Alarm), "Near Under Volt", "UndrVolt", Alarm::WARNING, Product::hasVoltageSensing, {}},
    {PARAM_ID(Near_Over_Volt_Alarm), "Near Over Volt", "OverVolt", Alarm::WARNING, Product::hasVoltageSensing, {}},
    {PARAM_ID(PS_1_OFF_Alarm), "PS 1 Off", "PS 1 Off", Alarm::WARNING, Product::has2ndPS, {}},
    {PARAM_ID(PS_2_OFF_Alarm), "PS 2 Off", "PS 2 Off", Alarm::WARNING, Product::has2ndPS, {}},
    {PARAM_ID(Storage_Removed_Alarm), "Storage Removed", "StorRmvd", Alarm::ERROR, Product::hasMedia, {"clear_on_record_pressed", "clear_on_play_pressed"}},
    {PARAM_ID(Invalid_Selection_Alarm), "Invalid Selection", "Inv Sel", Alarm::WARNING, nullptr, {"can_be_cleared"}},
    {PARAM_ID(Name_In_Use_Alarm), "Name In Use", "Name Use", Alarm::WARNING, Product::hasMedia, {"raise_on_record_pressed", "clear_on_record_pressed"}},
    {PARAM_ID(Record_Format_Alarm), "Record Format", "Rec Fmt", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed", "clear_on_record_pressed"}},
    {PARAM_ID(Dropped_Frames_Alarm), "Dropped Frames", "Drop Frm", Alarm::ERROR, Product::hasMedia, {"clear_on_record_pressed", "clear_on_play_pressed", "can_be_cleared"}},
    {PARAM_ID(Near_Over_Temp_Alarm), "Near Over Temp", "OverTemp", Alarm::WARNING, nullptr, {}},
    {PARAM_ID(Fan_Stopped_Alarm), "Fan Stopped", "Fan Stop", Alarm::CRITICAL, Product::hasFan, {}},
    {PARAM_ID(Input_Error_Alarm), "Input Error", "In Err", Alarm::ERROR, nullptr, {"raise_on_record"}},
    {PARAM_ID(Output_Error_Alarm), "Output Error", "Out Err", Alarm::ERROR, nullptr, {}},
    {PARAM_ID(Max_Clips_Alarm), "Max Clips", "Max Clip", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed", "clear_on_record_pressed"}},
    {PARAM_ID(Safe_Boot_Mode_Alarm), "Safe Boot Mode", "SafeBoot", Alarm::CRITICAL, nullptr, {}},
    {PARAM_ID(Media_Low_Alarm), "Media Low", "MediaLow", Alarm::WARNING, Product::hasMedia, {"raise_on_record"}},
    {PARAM_ID(Media_Full_Alarm), "Media Full", "MediaFul", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed", "clear_on_play_pressed"}},
    {PARAM_ID(AV_Mismatch_Alarm), "AV Mismatch", "AV Mism", Alarm::WARNING, Product::hasMedia, {"can_be_cleared"}},
    {PARAM_ID(Input_Format_Changed_Alarm), "Input Format Changed", "In Fmt", Alarm::WARNING, nullptr, {"raise_on_record", "clear_on_record_pressed"}},
    {PARAM_ID(No_Video_Input_Alarm), "No Video Input", "No Video", Alarm::ERROR, nullptr, {"raise_on_record_pressed"}},
    {PARAM_ID(Frame_Skipped_Alarm), "Frame Skipped", "Frm Skip", Alarm::WARNING, Product::canDoPlayback, {"clear_on_play_pressed", "can_be_cleared"}},
    {PARAM_ID(Media_Unformatted_Alarm), "Media Unformatted", "Unformat", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed"}},
    {PARAM_ID(Media_Damaged_Alarm), "Media Damaged", "Damaged", Alarm::CRITICAL, Product::hasMedia, {"raise_on_record_pressed"}},
    {PARAM_ID(Genlock_Missing_Alarm), "Genlock Missing", "No Genlk", Alarm::WARNING, Product::hasGenlock, {}},
    {PARAM_ID(2_Channel_Format_Alarm), "2 Channel Format", "2Ch Fmt", Alarm::ERROR, Product::isMultiChannel, {"raise_on_record_pressed", "clear_on_record_pressed"}},
    {PARAM_ID(SDI_VFR_Mismatch_Alarm), "SDI VFR Mismatch", "SDI VFR", Alarm::WARNING, Product::hasMedia, {"raise_on_record_pressed"}},
    {PARAM_ID(Genlock_Mismatch_Alarm), "Genlock Mismatch", "GenlkMis", Alarm::WARNING, Product::hasGenlock, {}},
    {PARAM_ID(Non_VFR_Format_Alarm), "Non VFR Format", "Non VFR", Alarm::WARNING, Product::hasMedia, {"raise_on_record_pressed"}},
    {PARAM_ID(No_Clip_Name_Alarm), "No Clip Name", "No Name", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed", "clear_on_record_pressed"}},
    {PARAM_ID(Unsupported_Media_4KP60HQ_Alarm), "Unsupported Media 4KP60HQ", "No 4K60", Alarm::ERROR, Product::canDoUHD, {"raise_on_record_pressed"}},
    {PARAM_ID(Rollover_Unsupported_Media_4KP60HQ_Alarm), "Rollover Unsupported Media 4KP60HQ", "RO 4K60", Alarm::ERROR, Product::canDoRollover, {"raise_on_record_pressed"}},
    {PARAM_ID(No_Media_Installed_Alarm), "No Media Installed", "No Media", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed", "clear_on_play_pressed"}},
    {PARAM_ID(Turn_Off_Camera_Data_Alarm), "Turn Off Camera Data", "Cam Data", Alarm::WARNING, Product::hasCameraData, {"raise_on_record_pressed", "can_be_cleared"}},
    {PARAM_ID(HQ_Not_Supported_Alarm), "HQ Not Supported", "No HQ", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed"}},
    {PARAM_ID(BitRate_Not_Compatible_Alarm), "Bit Rate Not Compatible", "Bit Rate", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed"}},
    {PARAM_ID(Change_Encode_Mode_Alarm), "Change Encode Mode", "Enc Mode", Alarm::WARNING, Product::hasMedia, {"raise_on_record_pressed"}},
    {PARAM_ID(Rollover_Media_Full_Alarm), "Rollover Media Full", "RO Full", Alarm::ERROR, Product::canDoRollover, {"raise_on_record"}},
    {PARAM_ID(Rollover_Media_Low_Alarm), "Rollover Media Low", "RO Low", Alarm::WARNING, Product::canDoRollover, {"raise_on_record"}},
    {PARAM_ID(Rollover_Media_Unformatted_Alarm), "Rollover Media Unformatted", "RO Unfmt", Alarm::WARNING, Product::canDoRollover, {"raise_on_record_pressed"}},
    {PARAM_ID(No_Rollover_Alarm), "No Rollover", "No RO", Alarm::WARNING, Product::canDoRollover, {"raise_on_record_pressed"}},
    {PARAM_ID(Rollover_Media_Not_Empty_Alarm), "Rollover Media Not Empty", "RO Used", Alarm::WARNING, Product::canDoRollover, {"raise_on_record_pressed"}},
    {PARAM_ID(LUT_Alarm), "LUT", "LUT", Alarm::WARNING, Product::hasLut, {"can_be_cleared"}},
    {PARAM_ID(Safeboot_Alarm), "Safeboot", "Safeboot", Alarm::CRITICAL, nullptr, {"hidden_param"}},
    {PARAM_ID(Record_Inhibited_Alarm), "Record Inhibited", "Rec Inh", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed", "clear_on_record_pressed"}},
    {PARAM_ID(MXF_Record_Inhibited_Alarm), "MXF Record Inhibited", "MXF Inh", Alarm::ERROR, Product::hasMedia, {"raise_on_record_pressed", "clear_on_record_pressed"}},
    {PARAM_ID(Interval_Record_Enabled_Alarm), "Interval Record Enabled", "Interval", Alarm::INFORMATION, Product::hasMedia, {"raise_on_record_pressed", "hidden_param"}},
    {PARAM_ID(ProRes_MultiChnl_Record_Format_Alarm), "ProRes MultiChnl Record Format", "PR MC", Alarm::ERROR, Product::isMultiChannel, {"raise_on_record_pressed"}},
    {PARAM_ID(Infinite_Record_Alarm), "Infinite Record", "Inf Rec", Alarm::INFORMATION, Product::hasMedia, {"raise_on_record", "hidden_param"}},
};
// clang-format on
static_assert(std::size(kAlarms) == 49);

/// The value of an alarm that nobody has raised.
std::string AtRest(alarms::Alarm_Severity severity)
{
    Alarm alarm;
    alarm.set_state(Alarm::CLEAR);
    alarm.set_severity(severity);
    return alarm.SerializeAsString();
}

void CreateAlarm(const AlarmRow& row)
{
    AlarmEntry entry(row.id, row.idName, row.name, row.shortName);
    entry.Command().Default(AtRest(row.severity)).ClassName("protobuf_message");
    for (const char* const name : row.classNames)
        if (name) entry.ClassName(name);
    entry.Attribute("Content-Type", "application/vnd.google.protobuf")
        .Description("Alarm (protobuf encoded)");
    Register(entry);
}

}  // namespace

/// Alarms: what a component that owns a condition raises and clears through services/alarms.
void CreateGroup_NewAlarms()
{
    for (const AlarmRow& row : kAlarms)
        if (!row.onThisModel || row.onThisModel()) CreateAlarm(row);
}

}  // namespace vexa::config::catalogue
