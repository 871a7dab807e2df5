/// Identity and features of the models, as data. The rows are in product_models.inc.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "config/base/export.h"

/// Derivation of a model's serial number from the last four bytes of its Ethernet address.
struct VEXA_EXPORT SerialRow {
    const char* prefix = "XX";         ///< two or three letters before the digits
    uint32_t offset = 0;               ///< added to the serial before it is printed
    uint32_t low = 0, high = 0;        ///< production range of addresses, both ends excluded
    uint32_t engLow = 0, engHigh = 0;  ///< engineering range of addresses, both ends excluded
};

/// One model. The default row, without features, stands for unknown models.
struct VEXA_EXPORT ProductModel {
    std::string_view name;  ///< as PRODUCT_ID has it; empty for unknown models
    unsigned int number =
        0;             ///< that stands for the model in eParamID_ProductID: never another one, never reused
    SerialRow serial;  ///< how serial numbers are made
    int ethernetPorts = 1;         ///< number of Ethernet ports
    int minimumHeight = 0;         ///< smallest picture height in lines; 0: none
    int sdiInputs = 1;             ///< number of SDI inputs
    int mediaSlots = 1;            ///< number of media slots
    bool signalProcessor = false;  ///< a converter or frame synchroniser: no media
    bool frontPanel = true;        ///< a display and keys
    /// Features: CProductFeatures explains each.
    bool uhd = false, sdi12G = false, rgb444 = false, xq = false, frameSync = false, analogInputs = false,
         rs422 = false, fireWire = false, cameraData = false, lut = false, colourDisplay = false;
    /// Features: CProductFeatures explains each.
    bool multiChannel = false, i18n = false, gang = false, playback = false, rollover = false,
         timecode = false, genlock = false, fan = false, secondPowerSupply = false, voltageSensing = false,
         dashboard = false, reelInUI = false, flashFileSystem = false, identifyLed = false,
         twoLinePanel = false, eraseAllPresets = false, storageCert = false;
};

/// All models, in the order of the table.
VEXA_EXPORT std::span<const ProductModel> ProductModels();

/// The row of a model, compared exactly; null when there is none.
VEXA_EXPORT const ProductModel* FindProductModel(std::string_view name);

/// The row of the device that this process runs on, unless this thread works for another one; the default row
/// for an unknown model. Thread: any.
VEXA_EXPORT const ProductModel& CurrentProductModel();

/// Makes a model the current one for this thread, for the life of a scope.
class ProductModelScope {
  public:
    /// @param model  outlives the scope.
    explicit ProductModelScope(const ProductModel& model);
    ~ProductModelScope();
    ProductModelScope(const ProductModelScope&) = delete;
    ProductModelScope& operator=(const ProductModelScope&) = delete;

  private:
    const ProductModel* const m_before;
};
