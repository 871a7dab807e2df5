#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 118: language. The names say each language in itself, and the short names are the locale names that go to
/// setlocale, so neither has a translation.
void CreateGroup_118()
{
    Register(Enum(PARAM_ID(Locale), "Locale", "Locale")
                 .Values({{0, "English", "en_US.utf8"},
                          {1, "日本語 - Japanese", "ja_JP.utf8"},
                          {2, "한국어 - Korean", "ko_KR.utf8"},
                          {3, "中文 - Chinese", "zh_CN.utf8"}})
                 .ClassName("hidden_param")
                 .Description("Language of names and descriptions."));
}

/// Group 120: rear-panel identification, on models that have the LED.
void CreateGroup_120()
{
    if (!CProductFeatures::hasIdentifyLed()) return;

    Register(Enum(PARAM_ID(LED_Identify), "Identify LED", "ID LED")
                 .Feature(eFeature_5)
                 .Values({{0, "OFF"}, {1, "ON"}, {2, "Blink"}})
                 .ClassName("led")
                 .Description("Provides control of the Identify LED on the back of the unit."));
}

}  // namespace vexa::config::catalogue
