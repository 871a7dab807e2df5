/// Features of the current model.
#pragma once

#include <string>

#include "config/base/export.h"

/// What the current model has and can do, from its row in product_models.inc; an unknown model has no optional
/// feature. No state; thread: any.
class VEXA_EXPORT CProductFeatures {
  public:
    /// Translated texts, and the locales that have them ("ja_JP.utf8").
    static bool canDoi18n();
    /// @param locale  "ja_JP.utf8".
    static bool canDol10n(std::string locale);
    /// Number of Ethernet ports.
    static int canDoEthernets();
    /// Records together with other units.
    static bool canDoGang();
    /// Shows its state on a page of its own.
    static bool hasDashboard();
    /// Time code settings.
    static bool canDoTimecode();
    /// Goes on recording on the other media when one is full, and on media of the network.
    static bool canDoRollover();
    /// Measures how fast media are.
    static bool canDoBenchmark();
    /// Certifies media for recording: those models that measure them.
    static bool canDoStorageCert();
    /// Plays clips back.
    static bool canDoPlayback();
    /// The front panel shows the reel name.
    static bool usesReelInUI();
    /// A fan whose speed can be set.
    static bool hasFan();
    /// A second power supply.
    static bool has2ndPS();
    /// Measures its supply voltage.
    static bool hasVoltageSensing();
    /// A reference input.
    static bool hasGenlock();
    /// Pictures of this many lines.
    static bool canDoHeight(int height);
    /// Records several channels at once.
    static bool isMultiChannel();
    /// Media with a file system for flash.
    static bool usesFlashFileSystem();
    /// A factory reset erases all presets.
    static bool shouldEraseAllPresets();
    /// A LED on the back that tells the unit from others.
    static bool hasIdentifyLed();
    /// Records to media and so has clips, slots and a transport; false on converters and frame synchronisers.
    static bool hasMedia();
    /// Two media slots.
    static bool hasSecondSlot();
    /// Records a few frames at regular intervals, on one channel.
    static bool canDoInterval();
    /// Number of SDI inputs.
    static int countSDIInputs();
    /// A display and keys.
    static bool hasFrontPanel();
    /// A panel with a colour display of its own brightness, beside the key backlight.
    static bool hasColourDisplay();
    /// Pictures of 2160 lines.
    static bool canDoUHD();
    /// SDI links of 12 Gbit/s.
    static bool has12G();
    /// Records pictures of 2160 lines at 47.95 to 60 frames per second, which only 12G links bring in.
    static bool recordsUHD60();
    /// Codecs with RGB 4:4:4, and the largest of them.
    static bool canDoRGB444();
    /// See canDoRGB444.
    static bool canDoXQ();
    /// A frame synchroniser behind the SDI inputs.
    static bool hasInputFrameSync();
    /// Component and composite video, analogue audio.
    static bool hasAnalogInputs();
    /// Remote control over RS-422.
    static bool hasRS422();
    /// Media over FireWire.
    static bool hasFireWire();
    /// Clip names and record triggers of a camera in the SDI signal.
    static bool hasCameraData();
    /// A look-up table for the picture.
    static bool hasLut();
    /// A front panel that shows a value on two lines.
    static bool hasTwoLinePanel();
};
