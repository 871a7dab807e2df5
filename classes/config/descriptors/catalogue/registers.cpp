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

/// A command that takes the number of a preset. It is volatile because the same number twice means two commands.
Integer PresetCommand(ParamName param, const char* name, const char* shortName)
{
    Integer entry(param.id, param.idName, name, shortName);
    entry.Command().Range(1, kPresets).Default(1).ClassName("volatile").ClassName("preset_param");
    return entry;
}

/// The outcome of such a command, which may be the same twice.
Enum PresetResult(ParamName param, const char* name, const char* shortName)
{
    Enum entry(param.id, param.idName, name, shortName);
    entry.Transient().ClassName("volatile").ClassName("readonly");
    return entry;
}

}  // namespace

/// Presets in the unit's flash storage: groups 91 (recall) and 92 (save), results in 126.
void CreateParamDescriptor_RegisterSaveRecall()
{
    Register(PresetCommand({PARAM_ID(RegisterRecall)}, "Recall Preset", "Pre Rcl")
                 .Description("Recall a preset from internal flash storage."));
    Register(PresetResult({PARAM_ID(RegisterRecallResult)}, "Recall Preset Result", "Rcl Res")
                 .Values(Results("Recalling...", "Recall Complete", "Recall Failed"))
                 .Description("Outcome of the last preset recall."));
    Register(PresetCommand({PARAM_ID(RegisterSave)}, "Store Preset", "Pre Stor")
                 .Attribute("ParamGroup", 4)
                 .Description("Save a preset to internal flash storage."));
    Register(PresetResult({PARAM_ID(RegisterSaveResult)}, "Store Preset Result", "Stor Res")
                 .Values({{0, ""}, {1, "Storing..."}, {2, "Store Complete"}, {3, "Store Failed"}})
                 .Description("Outcome of the last preset store."));
}

/// Presets on the recording media, which carry them from unit to unit.
void CreateParamDescriptor_RegisterLoadStore()
{
    if (!CProductFeatures::hasMedia()) return;

    Register(PresetCommand({PARAM_ID(RegisterLoad)}, "Load Preset from Media", "Pre Load")
                 .Description("Load a preset from the media into internal flash storage."));
    Register(PresetResult({PARAM_ID(RegisterLoadResult)}, "Load Preset Result", "Load Res")
                 .Values(Results("Loading...", "Load Complete", "Load Failed"))
                 .Description("Outcome of the last preset load."));
    Register(PresetCommand({PARAM_ID(RegisterStore)}, "Store Preset to Media", "Pre Copy")
                 .Description("Copy a preset from internal flash storage to the media."));
    Register(PresetResult({PARAM_ID(RegisterStoreResult)}, "Store to Media Result", "Copy Res")
                 .Values(Results("Copying...", "Copy Complete", "Copy Failed"))
                 .Description("Outcome of the last copy of a preset to the media."));
}

/// Presets as files of the web application, which starts the transfer itself and only needs the outcome.
void CreateParamDescriptor_RegisterImportExport()
{
    Register(PresetResult({PARAM_ID(RegisterExportResult)}, "Export Preset Result", "Exp Res")
                 .Values(Results("Exporting...", "Export Complete", "Export Failed"))
                 .Description("Outcome of the last preset export."));
    Register(PresetResult({PARAM_ID(RegisterImportResult)}, "Import Preset Result", "Imp Res")
                 .Values(Results("Importing...", "Import Complete", "Import Failed"))
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
        Register(String(id, "eParamID_PresetName_" + number, "Preset Name " + number, "PreNm " + number)
                     .NotInRegisters()
                     .Reset(reset)
                     .Length(0, 20)
                     .Default("Preset " + number)
                     .Description("Name under which the preset appears in lists."));
    }
}

}  // namespace vexa::config::catalogue
