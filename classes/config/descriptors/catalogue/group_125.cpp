#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"
#include "services/product/product_models.h"

namespace vexa::config::catalogue {

namespace {

constexpr unsigned int kClipNameLength = 64, kNoPlaylistIndex = 1000;

ValueList Products()
{
    ValueList products = {{0, "Unknown"}};
    for (const ProductModel& model : ProductModels())
        products.push_back({model.number, std::string(model.name)});
    return products;
}

void CreateTransport()
{
    const bool playback = CProductFeatures::canDoPlayback();
    Register(Enum(PARAM_ID(TransportCommand), "Transport Command", "Tran Cmd")
                 .Command()
                 .Values({{0, "Idle"}, {1, "Stop"}, {2, "Record"}})
                 .ValuesIf(playback, {{3, "Play"},
                                      {4, "Play Reverse"},
                                      {5, "Fast Forward"},
                                      {6, "Fast Reverse"},
                                      {7, "Single Step Forward"},
                                      {8, "Single Step Reverse"},
                                      {9, "Next Clip"},
                                      {10, "Previous Clip"},
                                      {11, "Variable Speed Play"},
                                      {12, "Pause"},
                                      {13, "Cue"}})
                 .ClassName("volatile")
                 .ClassName("panel_hidden")
                 .Description("Key of the transport; setting it presses the key."));
    Register(Enum(PARAM_ID(TransportState), "Transport State", "Tran St")
                 .Feature(eFeature_1)
                 .Status()
                 .Values({{0, "Unknown"}, {1, "Stopped"}, {2, "Recording"}})
                 .ValuesIf(playback, {{3, "Playing"},
                                      {4, "Playing Reverse"},
                                      {5, "Fast Forward"},
                                      {6, "Fast Reverse"},
                                      {7, "Stepping Forward"},
                                      {8, "Stepping Reverse"},
                                      {11, "Variable Speed"},
                                      {12, "Paused"},
                                      {13, "Cueing"}})
                 .Description("What the transport does."));
}

/// Cueing: moves playback to a place in the recorded material. The empty time code and the index behind the last
/// are at rest: the device puts them back, so that the same place can be asked for twice.
void CreateCue()
{
    Register(Integer(PARAM_ID(TransportRequestedSpeed), "Transport Requested Speed", "TranSped")
                 .Type(eCParam_Signed)
                 .Command()
                 .Range(0, 0xffffffff)
                 .Default(100)
                 .Units("%")
                 .ClassName("panel_hidden")
                 .Description("Speed of variable-speed play, 100 being normal; negative plays backwards."));
    Register(String(PARAM_ID(CueToTimecode), "Cue to Timecode", "Cue TC")
                 .Command()
                 .Length(0, 11)
                 .Description("Time code; setting it moves playback there."));
    Register(String(PARAM_ID(GoToClip), "Go to Clip", "GoToClip")
                 .Command()
                 .Length(0, kClipNameLength)
                 .ClassName("volatile")
                 .ClassName("panel_hidden")
                 .Description("Name of a clip; setting it selects the clip for playback."));
    Register(
        Integer(PARAM_ID(GoToPlaylistIndex), "Go to Playlist Index", "GoToIdx")
            .Command()
            .Range(0, kNoPlaylistIndex)
            .Default(kNoPlaylistIndex)
            .ClassName("panel_hidden")
            .Description(
                "Entry of the playlist, counted from 0; setting it moves playback there; 1000 is none."));
}

void CreateGang()
{
    Register(String(PARAM_ID(GangClipName), "Gang Clip Name", "GangClip")
                 .Internal()
                 .Length(0, kClipNameLength)
                 .Description("Clip name that the master of the gang hands to its followers."));
    Register(String(PARAM_ID(GangRecordClipBaseName), "Gang Record Clip Base Name", "GangBase")
                 .Internal()
                 .Length(0, kClipNameLength)
                 .Description("Clip name of the gang without the part that tells the units apart."));
    Register(Enum(PARAM_ID(GroupNameSupport), "Group Name Support", "Grp Name")
                 .Internal()
                 .Default(1)
                 .Values(OffOn())
                 .Description("Tells other units that this one takes clip names from a gang."));
}

void CreateCamera()
{
    if (CProductFeatures::hasCameraData()) {
        Register(String(PARAM_ID(CameraData), "Camera Data", "Cam Info")
                     .Internal()
                     .Length(0, 255)
                     .Attribute("data_js_class_name", "CameraData")
                     .Description("What the camera in the SDI signal says about itself."));
    }
    if (CProductFeatures::hasFireWire()) {
        Register(Enum(PARAM_ID(FirewireAVCPause), "FireWire AV/C Pause", "AVCPause")
                     .Values(OffOn())
                     .ClassName("deprecated_do_not_use")
                     .Description("Pauses the FireWire source while the recorder is stopped."));
    }
}

/// States of the device's own programs, for each other and for the start-up.
void CreateProcessStates()
{
    if (CProductFeatures::hasMedia()) {
        Register(Enum(PARAM_ID(MediaManagerState), "Media Manager State", "MedMgrSt")
                     .Internal()
                     .Values(ProcessStates())
                     .Description("State of the program that looks after the media."));
    }
    Register(Enum(PARAM_ID(WebAppState), "Web App State", "WebAppSt")
                 .Internal()
                 .Values(ProcessStates())
                 .Description("State of the program that serves the web pages."));
    if (CProductFeatures::hasFrontPanel()) {
        Register(Enum(PARAM_ID(PanelAppState), "Panel App State", "PanAppSt")
                     .Internal()
                     .Values(ProcessStates())
                     .Description("State of the program that serves the front panel."));
    }
}

void CreateFirmwareAndSensors()
{
    Register(Enum(PARAM_ID(FirmwareStatus), "Firmware Status", "FW Stat")
                 .Status()
                 .Values(TwoLines({{0, "NotChange/Success"},
                                   {1, "Updating/Do Not Turn Off"},
                                   {2, "Updated/Restart Needed"},
                                   {3, "Update/Failed"}}))
                 .Description("Result of the last look at the firmware of the unit's components."));
    Register(
        Enum(PARAM_ID(SensorCommand), "Sensor Command", "Sens Cmd")
            .Internal()
            .Values(TwoLines(
                {{0, "Idle"}, {1, "Measure: Now"}, {2, "Shutdown: 2 seconds"}, {3, "Shutdown: 10 seconds"}}))
            .Description("What the sensor controller is asked to do."));
    Register(Enum(PARAM_ID(SensorState), "Sensor State", "Sens St")
                 .Internal()
                 .Values(TwoLines({{0, "Normal"},
                                   {1, "Voltage: Low"},
                                   {2, "Voltage: High"},
                                   {3, "Temperature: High"},
                                   {4, "Fan: Stopped"}}))
                 .Description("What the sensor controller has found."));
}

}  // namespace

/// Group 125: transport, and the words between the device's own programs.
void CreateGroup_125()
{
    Register(Data(PARAM_ID(TestData), "Test Data", "TestData")
                 .Internal()
                 .SizeLimit(4096)
                 .Description("Bytes without a meaning, for trying out a connection."));
    if (CProductFeatures::hasMedia()) CreateTransport();
    if (CProductFeatures::canDoPlayback()) CreateCue();
    if (CProductFeatures::canDoGang()) CreateGang();
    CreateCamera();
    CreateProcessStates();
    Register(Enum(PARAM_ID(ProductID), "Product ID", "Product")
                 .Internal()
                 .Default(CurrentProductModel().number)
                 .Values(Products())
                 .Description("Model of this unit."));
    Register(Enum(PARAM_ID(NetworkServices), "Network Services", "Net Svcs")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Default(2)
                 .Values({{0, "Off"}, {1, "Web Only"}, {2, "Web and File Transfer"}})
                 .Description("Services that the unit offers in the network."));
    CreateFirmwareAndSensors();
}

}  // namespace vexa::config::catalogue
