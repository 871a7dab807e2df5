/// Features of the current model, from its row in product_models.inc; an unknown model has no optional feature.
/// No state; thread: any.
#pragma once

#include <string>

#include "config/base/export.h"

class VEXA_EXPORT CProductFeatures {
  public:
    /// Translated texts, and the locales that have them ("ja_JP.utf8").
    static bool canDoi18n();
    static bool canDol10n(std::string locale);
    /// Number of Ethernet ports.
    static int canDoEthernets();
    static bool canDoGang();
    static bool hasDashboard();
    static bool canDoTimecode();
    static bool canDoRollover();
    static bool canDoBenchmark();
    static bool canDoStorageCert();
    static bool canDoPlayback();
    static bool usesReelInUI();
    static bool hasFan();
    /// A second power supply.
    static bool has2ndPS();
    static bool hasVoltageSensing();
    static bool hasGenlock();
    /// Pictures of this many lines.
    static bool canDoHeight(int height);
    static bool isMultiChannel();
    static bool usesFlashFileSystem();
    static bool shouldEraseAllPresets();
    static bool hasIdentifyLed();
    /// Records to media and so has clips, slots and a transport; false on converters and frame synchronisers.
    static bool hasMedia();
    static bool hasSecondSlot();
    /// Records a few frames at regular intervals, on one channel.
    static bool canDoInterval();
    static int countSDIInputs();
    static bool hasFrontPanel();
    /// A panel with a colour display of its own brightness, beside the key backlight.
    static bool hasColourDisplay();
    /// Pictures of 2160 lines.
    static bool canDoUHD();
    static bool has12G();
    /// Records pictures of 2160 lines at 47.95 to 60 frames per second, which only 12G links bring in.
    static bool recordsUHD60();
    /// Codecs with RGB 4:4:4, and the largest of them.
    static bool canDoRGB444();
    static bool canDoXQ();
    /// A frame synchroniser behind the SDI inputs.
    static bool hasInputFrameSync();
    /// Component and composite video, analogue audio.
    static bool hasAnalogInputs();
    static bool hasRS422();
    static bool hasFireWire();
    /// Clip names and record triggers of a camera in the SDI signal.
    static bool hasCameraData();
    static bool hasLut();
    /// A front panel that shows a value on two lines.
    static bool hasTwoLinePanel();
};
