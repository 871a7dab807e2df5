#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

/// The menu positions of the front panel, which outlast a restart, and its messages at shutdown.
void CreatePanelMemory()
{
    Register(Integer(PARAM_ID(LastSelectedConfigParam), "Last Selected Config Parameter", "Last Cfg")
                 .Feature(eFeature_2)
                 .NotInRegisters()
                 .Range(0, 0xffffffff)
                 .ClassName("hidden_param")
                 .Description("Parameter at which the configuration menu was left; 0 is the first."));
    Register(Integer(PARAM_ID(LastSelectedMediaParam), "Last Selected Media Parameter", "Last Med")
                 .Feature(eFeature_2)
                 .NotInRegisters()
                 .Range(0, 0xffffffff)
                 .ClassName("hidden_param")
                 .Description("Parameter at which the media menu was left; 0 is the first."));
    Register(String(PARAM_ID(ShutdownMessage), "Shutdown Message", "Shutdwn")
                 .Internal()
                 .Length(0, 40)
                 .Description("First line of the display while the unit shuts down."));
    Register(String(PARAM_ID(ShutdownMessageII), "Shutdown Message II", "Shutdwn2")
                 .Internal()
                 .Length(0, 40)
                 .Description("Second line of the display while the unit shuts down."));
}

}  // namespace

/// Group 125, system: start-up, shutdown and supply.
void CreateGroup_System()
{
    if (CProductFeatures::hasFrontPanel()) CreatePanelMemory();
    Register(Enum(PARAM_ID(SystemCommand), "System Command", "Sys Cmd")
                 .Feature(eFeature_2)
                 .Command()
                 .MaxValue(7)
                 .Values({{0, "eSystemCommandUnitialized"},
                          {1, "eSystemCommandInitializeFirmware"},
                          {2, "eSystemCommandInitializeConfig"},
                          {3, "eSystemCommandStartup"},
                          {4, "eSystemCommandShutdown"},
                          {5, "eSystemCommandPowersave"},
                          {6, "eSystemCommandReboot"}})
                 .Description(
                     "System Command Access. Setting a value of 6 triggers a reboot. Use of other values can "
                     "trigger unpredictable results and is not recommended."));
    Register(Enum(PARAM_ID(SystemState), "System State", "Sys St")
                 .Feature(eFeature_2)
                 .Status()
                 .Values({{0, "eSystemStateUninitialized"},
                          {1, "eSystemStateInitializingConfig"},
                          {2, "eSystemStateInitializingFirmware"},
                          {3, "eSystemStateInitialized"},
                          {4, "eSystemStateRunning"},
                          {5, "eSystemStatePowersave"},
                          {6, "eSystemStateLowBattery"},
                          {7, "eSystemStateShutdownRequested"},
                          {8, "eSystemStateShuttingDown"},
                          {9, "eSystemStateShutdown"},
                          {10, "eSystemStateFatalError"}})
                 .Description("Current system state."));
    Register(Integer(PARAM_ID(SystemXilinxInUse), "System FPGA in Use", "FPGA Use")
                 .Type(eCParam_Boolean)
                 .Internal()
                 .Range(0, 1)
                 .Description("Whether a program is using the FPGA, which must not be loaded meanwhile."));
    if (CProductFeatures::hasVoltageSensing()) {
        Register(Integer(PARAM_ID(MainVoltage), "Main Voltage", "Main V")
                     .Feature(eFeature_1)
                     .Status()
                     .Range(0, 30000)
                     .ScaleBy(1000)
                     .DisplayPrecision(2)
                     .Units("V")
                     .Description("Voltage at the power input, held in millivolts."));
    }
}

/// For the evening after the show.
void CreateGroup_BeerThirty()
{
    if (!CProductFeatures::hasFrontPanel()) return;

    Register(Enum(PARAM_ID(BeerGoggles), "Beer Goggles", "Goggles")
                 .Internal()
                 .Values(OffOn())
                 .ClassName("hidden")
                 .Description("Softens the picture on the front panel."));
}

}  // namespace vexa::config::catalogue
