#include "services/product/product_features.h"

#include <algorithm>

#include "services/product/product_models.h"

// clang-format off
bool CProductFeatures::canDoi18n() { return CurrentProductModel().i18n; }
int  CProductFeatures::canDoEthernets() { return CurrentProductModel().ethernetPorts; }
bool CProductFeatures::canDoGang() { return CurrentProductModel().gang; }
bool CProductFeatures::hasDashboard() { return CurrentProductModel().dashboard; }
bool CProductFeatures::canDoTimecode() { return CurrentProductModel().timecode; }
bool CProductFeatures::canDoRollover() { return CurrentProductModel().rollover; }
bool CProductFeatures::canDoBenchmark() { return CurrentProductModel().storageCert; }
bool CProductFeatures::canDoStorageCert() { return canDoBenchmark(); }
bool CProductFeatures::canDoPlayback() { return CurrentProductModel().playback; }
bool CProductFeatures::usesReelInUI() { return CurrentProductModel().reelInUI; }
bool CProductFeatures::hasFan() { return CurrentProductModel().fan; }
bool CProductFeatures::has2ndPS() { return CurrentProductModel().secondPowerSupply; }
bool CProductFeatures::hasVoltageSensing() { return CurrentProductModel().voltageSensing; }
bool CProductFeatures::hasGenlock() { return CurrentProductModel().genlock; }
bool CProductFeatures::isMultiChannel() { return CurrentProductModel().multiChannel; }
bool CProductFeatures::usesFlashFileSystem() { return CurrentProductModel().flashFileSystem; }
bool CProductFeatures::shouldEraseAllPresets() { return CurrentProductModel().eraseAllPresets; }
bool CProductFeatures::hasIdentifyLed() { return CurrentProductModel().identifyLed; }
bool CProductFeatures::hasTwoLinePanel() { return CurrentProductModel().twoLinePanel; }
bool CProductFeatures::hasMedia() { return !CurrentProductModel().signalProcessor; }
bool CProductFeatures::hasSecondSlot() { return hasMedia() && CurrentProductModel().mediaSlots > 1; }
bool CProductFeatures::canDoInterval() { return hasMedia() && !isMultiChannel(); }
int  CProductFeatures::countSDIInputs() { return CurrentProductModel().sdiInputs; }
bool CProductFeatures::hasFrontPanel() { return CurrentProductModel().frontPanel; }
bool CProductFeatures::hasColourDisplay() { return CurrentProductModel().colourDisplay; }
bool CProductFeatures::canDoUHD() { return CurrentProductModel().uhd; }
bool CProductFeatures::has12G() { return CurrentProductModel().sdi12G; }
bool CProductFeatures::recordsUHD60() { return hasMedia() && canDoUHD() && has12G(); }
bool CProductFeatures::canDoRGB444() { return CurrentProductModel().rgb444; }
bool CProductFeatures::canDoXQ() { return CurrentProductModel().xq; }
bool CProductFeatures::hasInputFrameSync() { return CurrentProductModel().frameSync; }
bool CProductFeatures::hasAnalogInputs() { return CurrentProductModel().analogInputs; }
bool CProductFeatures::hasRS422() { return CurrentProductModel().rs422; }
bool CProductFeatures::hasFireWire() { return CurrentProductModel().fireWire; }
bool CProductFeatures::hasCameraData() { return CurrentProductModel().cameraData; }
bool CProductFeatures::hasLut() { return CurrentProductModel().lut; }
// clang-format on

bool CProductFeatures::canDoHeight(int height)
{
    const int minimum = CurrentProductModel().minimumHeight;
    return minimum == 0 || height >= minimum;
}

bool CProductFeatures::canDol10n(std::string locale)
{
    constexpr const char* kTranslated[] = {"ja_JP.utf8", "ko_KR.utf8", "zh_CN.utf8"};
    return canDoi18n() && std::ranges::find(kTranslated, locale) != std::end(kTranslated);
}
