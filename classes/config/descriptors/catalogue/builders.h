/// The catalogue's builders, one per parameter group, numbered by the high byte of their identifiers.
///
/// The registry runs them in the order of kBuilders; a later builder replaces an identifier of an earlier
/// one.
#pragma once

namespace vexa::config::catalogue {

void CreateGroup_0();
void CreateGroup_1();
void CreateGroup_2();
void CreateGroup_4();
void CreateGroup_6();
void CreateGroup_8();
void CreateGroup_9();
void CreateGroup_12();
void CreateGroup_13();
void CreateGroup_14();
void CreateGroup_15();
void CreateGroup_16();
void CreateGroup_17();
void CreateGroup_19();
void CreateGroup_22();
void CreateGroup_32();
void CreateGroup_35();
void CreateGroup_41();
void CreateGroup_50();
void CreateGroup_55();
void CreateGroup_AlarmSuppress();
void CreateGroup_70();
void CreateGroup_80();
void CreateGroup_91();
void CreateGroup_92();
void CreateGroup_99();
void CreateGroup_100();
void CreateGroup_118();
void CreateGroup_120();
void CreateGroup_121();
void CreateGroup_122();
void CreateGroup_123();
void CreateGroup_125();
void CreateGroup_127();
void CreateGroup_System();
void CreateGroup_BeerThirty();
void CreateGroup_Discovery();
void CreateGroup_NewAlarms();
void CreateParamDescriptor_RegisterSaveRecall();
void CreateParamDescriptor_RegisterLoadStore();
void CreateParamDescriptor_RegisterImportExport();
void CreateParamDescriptor_PresetNames();
void CreateParamDescriptor_MediaParams();
/// Runs last and only in engineering builds; empty in this version.
void CreateParamDescriptor_EngineeringDebug();

inline constexpr void (*kBuilders[])() = {
    CreateGroup_0,
    CreateGroup_1,
    CreateGroup_2,
    CreateGroup_4,
    CreateGroup_6,
    CreateGroup_8,
    CreateGroup_9,
    CreateGroup_12,
    CreateGroup_13,
    CreateGroup_14,
    CreateGroup_15,
    CreateGroup_16,
    CreateGroup_17,
    CreateGroup_19,
    CreateGroup_22,
    CreateGroup_32,
    CreateGroup_35,
    CreateGroup_41,
    CreateGroup_50,
    CreateGroup_55,
    CreateGroup_AlarmSuppress,
    CreateGroup_70,
    CreateGroup_80,
    CreateGroup_91,
    CreateGroup_92,
    CreateGroup_99,
    CreateGroup_100,
    CreateGroup_118,
    CreateGroup_120,
    CreateGroup_121,
    CreateGroup_122,
    CreateGroup_123,
    CreateGroup_125,
    CreateGroup_127,
    CreateGroup_System,
    CreateGroup_BeerThirty,
    CreateGroup_Discovery,
    CreateGroup_NewAlarms,
    CreateParamDescriptor_RegisterSaveRecall,
    CreateParamDescriptor_RegisterLoadStore,
    CreateParamDescriptor_RegisterImportExport,
    CreateParamDescriptor_PresetNames,
    CreateParamDescriptor_MediaParams,
};

}  // namespace vexa::config::catalogue
