#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

constexpr unsigned int kPathLength = 255, kVolumeNameLength = 32;

ValueList SlotLedStates()
{
    return {{0, "OFF"}, {1, "Green"}, {2, "Red"}, {3, "Blink Green"}, {4, "Blink Red"}};
}

/// Requests to the media manager, and the folders it works in.
void CreateStorage()
{
    Register(String(PARAM_ID(ClipToDelete), "Clip to Delete", "Clip Del")
                 .Command()
                 .Length(0, kPathLength)
                 .ClassName("volatile")
                 .ClassName("panel_hidden")
                 .Description("Name of a clip; setting it deletes the clip."));
    Register(String(PARAM_ID(StoragePath), "Storage Path", "Path")
                 .Internal()
                 .Length(0, kPathLength)
                 .Description("Folder in which the media of the selected slot is mounted."));
    if (CProductFeatures::canDoRollover()) {
        Register(String(PARAM_ID(RolloverStoragePath), "Rollover Storage Path", "RollPath")
                     .Internal()
                     .Length(0, kPathLength)
                     .Description("Folder in which the media of the other slot is mounted."));
    }
    Register(Enum(PARAM_ID(StorageCommand), "Storage Command", "Stor Cmd")
                 .Command()
                 .Values({{0, "Idle"}, {1, "Mount"}, {2, "Unmount"}, {3, "Check"}, {4, "Repair"}})
                 .ValuesIf(CProductFeatures::canDoBenchmark(), {{5, "Benchmark"}})
                 .ValuesIf(CProductFeatures::canDoStorageCert(), {{6, "Certify"}})
                 .ClassName("panel_hidden")
                 .Description("Job that the media manager starts on the media in the selected slot."));
    Register(Integer(PARAM_ID(StorageAlarm), "Storage Alarm", "StorAlrm")
                 .Internal()
                 .Range(0, 0xffffffff)
                 .Description("Faults of the media, one bit each, from which the alarms are made."));
}

void CreateSlots()
{
    Register(Enum(PARAM_ID(S1_LED), "Slot 1 LED", "S1 LED")
                 .Internal()
                 .Values(SlotLedStates())
                 .ClassName("led")
                 .Description("Light beside slot 1."));
    if (CProductFeatures::hasSecondSlot()) {
        Register(Enum(PARAM_ID(S2_LED), "Slot 2 LED", "S2 LED")
                     .Internal()
                     .Values(SlotLedStates())
                     .ClassName("led")
                     .Description("Light beside slot 2."));
        Register(Enum(PARAM_ID(ChangeSlot), "Change Slot", "Chg Slot")
                     .Command()
                     .Values({{0, "Idle"}, {1, "Change"}})
                     .Description("Selects the other slot, as the slot key does."));
        Register(Enum(PARAM_ID(SelectedSlot), "Selected Slot", "Slot")
                     .NotInRegisters()
                     .NotReset()
                     .Values({{0, "Slot 1"}, {1, "Slot 2"}})
                     .ClassName("paneld_readonly")
                     .Dependent(eParamID_MediaState)
                     .Dependent(eParamID_VolumeName)
                     .Dependent(eParamID_CurrentMediaAvailable)
                     .Description("Slot that is used for recording and playback."));
    }
}

/// The media in the slots.
void CreateVolumes()
{
    Register(String(PARAM_ID(VolumeName), "Volume Name", "Volume")
                 .Command()
                 .Length(0, kVolumeNameLength)
                 .Description("Name of the media in the selected slot; formatting puts it on the media."));
    Register(Enum(PARAM_ID(MediaLoading), "Media Loading", "Loading")
                 .Internal()
                 .Values({{0, "No"}, {1, "Yes"}})
                 .Description("Whether the clips of newly inserted media are still being read."));
    if (CProductFeatures::canDoRollover()) {
        Register(String(PARAM_ID(RolloverVolumeName), "Rollover Volume Name", "Roll Vol")
                     .Command()
                     .Length(0, kVolumeNameLength)
                     .Description("Name of the media in the other slot; formatting puts it on the media."));
    }
    Register(Integer(PARAM_ID(MediaSpeed), "Media Speed", "MedSpeed")
                 .Internal()
                 .Range(0, 4000)
                 .Units("MB/s")
                 .Description("Write speed that was measured on the media in the selected slot."));
}

void CreateCurrentClip()
{
    Register(String(PARAM_ID(CurrentClip), "Current Clip", "Clip")
                 .Feature(eFeature_1)
                 .Status()
                 .Length(0, kPathLength)
                 .Dependent(eParamID_DetectMediaFormat)
                 .Description("Name of the clip that is selected for playback or being recorded."));
    Register(String(PARAM_ID(CurrentClipTime), "Current Clip Time", "ClipTime")
                 .Feature(eFeature_1)
                 .Status()
                 .Length(0, 11)
                 .Description("Time from the start of the clip to the present frame."));
    if (CProductFeatures::canDoPlayback()) {
        Register(Integer(PARAM_ID(CurrentPlaylistIndex), "Current Playlist Index", "List Idx")
                     .Command()
                     .Range(0, 999)
                     .ClassName("panel_hidden")
                     .Description("Entry of the playlist with which playback goes on, counted from 0."));
    }
    Register(Enum(PARAM_ID(CurrentFileSystem), "Current File System", "Cur FS")
                 .Feature(eFeature_1)
                 .Status()
                 .Default(254)
                 .Values(FileSystems())
                 .Values({{254, "None"}, {255, "Unknown"}})
                 .Description("File system found on the media in the selected slot."));
}

}  // namespace

/// Group 123: media and clips.
void CreateGroup_123()
{
    const bool hasMedia = CProductFeatures::hasMedia();
    if (hasMedia) {
        CreateStorage();
        CreateSlots();
    }
    // The store reads it on every model. It never reports 100: formatting itself takes some space.
    Register(Integer(PARAM_ID(CurrentMediaAvailable), "Media Available", "Avail")
                 .Feature(eFeature_1)
                 .Status()
                 .Range(0, 99)
                 .Units("%")
                 .HiddenUnless(hasMedia)
                 .Description("Free part of the media in the selected slot."));
    if (hasMedia) CreateVolumes();
    Register(Enum(PARAM_ID(Clear_Alarms), "Clear Alarms", "Clr Alrm")
                 .Command()
                 .Values({{0, "Idle"}, {1, "Clear"}})
                 .Description("Clears all alarms that can be cleared."));
    if (hasMedia) CreateCurrentClip();
}

}  // namespace vexa::config::catalogue
