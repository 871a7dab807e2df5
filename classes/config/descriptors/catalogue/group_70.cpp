#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

constexpr unsigned int kBrightest = 10;

void CreateDisplay()
{
    Register(Enum(PARAM_ID(ScreenSaverEnable), "Screen Saver", "ScrnSave")
                 .Default(1)
                 .Values(OffOn())
                 .Description("Dims the front panel when nobody uses it."));
    Register(Integer(PARAM_ID(ScreenSaverTimeout), "Screen Saver Timeout", "Scrn T/O")
                 .Range(1, 120)
                 .Default(10)
                 .Units("min")
                 .EnabledBy(eParamID_ScreenSaverEnable, 1)
                 .Suffixes("minute", "minutes")
                 .Description("Time without a key press after which the front panel dims."));
    Register(Integer(PARAM_ID(DisplayIntensity), "Display Intensity", "Disp Int")
                 .Range(1, kBrightest)
                 .Default(8)
                 .Description("Brightness of the front panel display."));
}

/// "Low" counts the steps from full brightness down to the dimmed level, starting with 1, so that "High",
/// which is the brightness in use, can be kept from falling below it.
void CreateBacklight()
{
    Register(Integer(PARAM_ID(BacklightIntensityHigh), "Backlight Intensity", "Bklt Hi")
                 .Range(1, kBrightest)
                 .Default(kBrightest)
                 .DependentMinimum(eParamID_BacklightIntensityLow)
                 .Description("Brightness of the key backlight while the panel is in use."));
    Register(Integer(PARAM_ID(BacklightIntensityLow), "Backlight Dimming", "Bklt Lo")
                 .Range(1, kBrightest)
                 .Default(8)
                 .Description("Steps by which the key backlight is dimmed, 1 being full brightness."));
    Register(Integer(PARAM_ID(BacklightIntensityNow), "Backlight Intensity Now", "Bklt Now")
                 .Internal()
                 .Range(0, kBrightest)
                 .Default(kBrightest)
                 .Description("Brightness to which the key backlight is set at this moment."));
}

void CreateColourDisplay()
{
    Register(Integer(PARAM_ID(LCDDisplayIntensityHigh), "LCD Intensity", "LCD Hi")
                 .Range(1, kBrightest)
                 .Default(kBrightest)
                 .DependentMinimum(eParamID_LCDDisplayIntensityLow)
                 .Description("Brightness of the color display while the panel is in use."));
    Register(Integer(PARAM_ID(LCDDisplayIntensityLow), "LCD Dimming", "LCD Lo")
                 .Range(1, kBrightest)
                 .Default(8)
                 .Description("Steps by which the color display is dimmed, 1 being full brightness."));
}

}  // namespace

/// Group 70: front panel and fan.
void CreateGroup_70()
{
    if (CProductFeatures::hasFrontPanel()) CreateDisplay();
    if (CProductFeatures::hasFan()) {
        Register(
            Integer(PARAM_ID(FanSpeed), "Fan Speed", "Fan")
                .Range(30, 100)
                .Default(50)
                .AdjustBy(10)
                .Units("%")
                .Description("Lowest speed of the fan; the unit raises it by itself when it gets warm."));
    }
    if (CProductFeatures::hasFrontPanel()) CreateBacklight();
    if (CProductFeatures::hasColourDisplay()) CreateColourDisplay();
}

}  // namespace vexa::config::catalogue
