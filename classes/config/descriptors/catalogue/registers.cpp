#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

constexpr unsigned int kPresets = 20;

/// The outcomes of a preset command, in menu order. "Preset Empty" came last but belongs before the failure.
ValueList Results(const char* running, const char* complete, const char* failed)
{
    return {{0, ""}, {1, running}, {2, complete}, {4, "Preset Empty"}, {3, failed}};
}

}  // namespace

/// Presets in the unit's flash storage: groups 91 (recall) and 92 (save), results in 126. A command is
/// volatile because the same number twice means two commands.
void CreateParamDescriptor_RegisterSaveRecall()
{
    Register(Integer(PARAM_ID(RegisterRecall), "Recall Preset", "Pre Rcl")
                 .Range(1, kPresets)
                 .Default(1)
                 .Command()
                 .ClassName("volatile")
                 .ClassName("preset_param")
                 .Description("Recall a preset from internal flash storage."));
    Register(Enum(PARAM_ID(RegisterRecallResult), "Recall Preset Result", "Rcl Res")
                 .Values(Results("Recalling...", "Recall Complete", "Recall Failed"))
                 .ClassName("volatile")
                 .Status()
                 .Description("Outcome of the last preset recall."));
    Register(Integer(PARAM_ID(RegisterSave), "Store Preset", "Pre Stor")
                 .Range(1, kPresets)
                 .Default(1)
                 .Command()
                 .ClassName("volatile")
                 .ClassName("preset_param")
                 .Attribute("ParamGroup", 4)
                 .Description("Save a preset to internal flash storage."));
    Register(Enum(PARAM_ID(RegisterSaveResult), "Store Preset Result", "Stor Res")
                 .Values({{0, ""}, {1, "Storing..."}, {2, "Store Complete"}, {3, "Store Failed"}})
                 .ClassName("volatile")
                 .Status()
                 .Description("Outcome of the last preset store."));
}

/// Presets on the recording media, which carry them from unit to unit.
void CreateParamDescriptor_RegisterLoadStore()
{
    if (!CProductFeatures::hasMedia()) return;

    Register(Integer(PARAM_ID(RegisterLoad), "Load Preset from Media", "Pre Load")
                 .Range(1, kPresets)
                 .Default(1)
                 .Command()
                 .ClassName("volatile")
                 .ClassName("preset_param")
                 .Description("Load a preset from the media into internal flash storage."));
    Register(Enum(PARAM_ID(RegisterLoadResult), "Load Preset Result", "Load Res")
                 .Values(Results("Loading...", "Load Complete", "Load Failed"))
                 .ClassName("volatile")
                 .Status()
                 .Description("Outcome of the last preset load."));
    Register(Integer(PARAM_ID(RegisterStore), "Store Preset to Media", "Pre Copy")
                 .Range(1, kPresets)
                 .Default(1)
                 .Command()
                 .ClassName("volatile")
                 .ClassName("preset_param")
                 .Description("Copy a preset from internal flash storage to the media."));
    Register(Enum(PARAM_ID(RegisterStoreResult), "Store to Media Result", "Copy Res")
                 .Values(Results("Copying...", "Copy Complete", "Copy Failed"))
                 .ClassName("volatile")
                 .Status()
                 .Description("Outcome of the last copy of a preset to the media."));
}

/// Presets as files of the web application, which starts the transfer itself and only needs the outcome.
void CreateParamDescriptor_RegisterImportExport()
{
    Register(Enum(PARAM_ID(RegisterExportResult), "Export Preset Result", "Exp Res")
                 .Values(Results("Exporting...", "Export Complete", "Export Failed"))
                 .ClassName("volatile")
                 .Status()
                 .Description("Outcome of the last preset export."));
    Register(Enum(PARAM_ID(RegisterImportResult), "Import Preset Result", "Imp Res")
                 .Values(Results("Importing...", "Import Complete", "Import Failed"))
                 .ClassName("volatile")
                 .Status()
                 .Description("Outcome of the last preset import."));
}

/// Group 93: names of the presets. Where a reset erases all presets, it takes their names along.
void CreateParamDescriptor_PresetNames()
{
    const eFactoryReset_t reset =
        CProductFeatures::shouldEraseAllPresets() ? eFactoryReset_Include : eFactoryReset_Exclude;
    for (unsigned int preset = 1; preset <= kPresets; ++preset) {
        const std::string number = std::to_string(preset);
        const auto id = static_cast<eParam_t>(eParamID_PresetName_1 + ((preset - 1) << 16));
        Register(
            String(id, ("eParamID_PresetName_" + number).c_str(), "Preset Name " + number, "PreNm " + number)
                .Length(0, 20)
                .Default(("Preset " + number).c_str())
                .NotInRegisters()
                .Reset(reset)
                .Description("Name under which the preset appears in lists."));
    }
}

}  // namespace vexa::config::catalogue
