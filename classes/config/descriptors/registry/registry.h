/// The descriptor registry: fills the process-wide table of all parameters (descriptor_table.h) once, from the
/// catalogue.
///
/// Thread: build, destroy and switch the locale on one thread, before the first Config is connected.
#pragma once

#include "config/base/export.h"
#include "config/descriptors/descriptor_table.h"

class BDX4Device;
struct ProductModel;

/// Builds the catalogue for the current model; does nothing when it is built. Without memory for all of it the
/// registry stays empty and std::bad_alloc leaves, since nothing works without a catalogue.
VEXA_EXPORT void CreateDescriptors();
/// The same on behalf of a device driver.
VEXA_EXPORT void CreateDescriptors(BDX4Device* device);
/// Builds the catalogue of any model beside the registry. Thread: any.
/// @param table  empty; owns the descriptors. Without memory it has some of them, and std::bad_alloc leaves.
void BuildDescriptors(const ProductModel& model, DescriptorTable& table);
/// Deletes all descriptors, the generic ones too. Pointers handed out earlier dangle.
VEXA_EXPORT void DestroyDescriptors();

/// A derivation pass of the build: gives "menu_number" ("125.2") to descriptors without one.
VEXA_EXPORT void AddMenuNumberAttribute();
/// The same for "ParamGroup".
VEXA_EXPORT void AddParamGroupAttribute();

/// Forwards to the generic catalogue, which stays a registry of its own: no descriptor is ever in both.
VEXA_EXPORT void ImportGenericDescriptors();

/// Rebuilds the catalogue in the language of one value of eParamID_Locale. Call it before the first Connect:
/// all descriptors are replaced. A locale that the machine lacks leaves the texts untranslated.
/// @return false, with the registry as it was, when the model has no translations or no such parameter; false
/// after one line when the memory ran out, with the registry empty if that happened on the way.
VEXA_EXPORT bool SetLocaleDescriptors(unsigned int locale);
