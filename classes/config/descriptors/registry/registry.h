/// The descriptor registry: the process-wide table of all parameters, built once from the catalogue.
///
/// Thread: build, destroy and switch the locale on one thread, before the first Config is connected;
/// afterwards the table is only read, by any thread and without a lock. Every descriptor belongs to the
/// registry.
#pragma once

#include <cstddef>
#include <list>
#include <string>

#include "config/descriptors/descriptor_table.h"

class BDX4Device;

/// The table itself, ascending by identifier, which is the order of every listing below.
extern DescriptorTable& g_paramDescriptors;

/// Builds the catalogue for the current model; does nothing when it is built.
void CreateDescriptors();
/// The same on behalf of a device driver.
void CreateDescriptors(BDX4Device* device);
/// Deletes all descriptors, the generic ones too. Everything handed out earlier dangles.
void DestroyDescriptors();

/// The descriptor of an identifier. Never null: an unknown identifier gets a bare placeholder named "1.2.3.4"
/// after its four bytes. Each call makes a new one that is never freed, so this is not for identifiers from a
/// peer.
ParamDescriptor* GetDescriptor(eParam_t id);
/// The first descriptor with this symbolic name, exactly; null when there is none.
ParamDescriptor* GetDescriptor(std::string paramIDName);
/// A literal 0 would be taken for a text.
ParamDescriptor* GetDescriptor(std::nullptr_t) = delete;
/// The descriptor of an identifier, or null when it is not registered. For identifiers from anywhere.
ParamDescriptor* FindDescriptor(eParam_t id);
bool IsValidParamID(eParam_t id);
/// The identifier with this symbolic name, 0 when there is none.
eParam_t GetParamNameParamID(std::string paramIDName);
std::list<std::string> GetParamIDNames();
std::list<eParam_t> GetParamIDs();

/// The derivation passes of the build: give "menu_number" ("125.2") and "ParamGroup" to descriptors without
/// one.
void AddMenuNumberAttribute();
void AddParamGroupAttribute();

/// Forwards to the generic catalogue, which stays a registry of its own: no descriptor is ever in both.
void ImportGenericDescriptors();

/// Rebuilds the catalogue in the language of one value of eParamID_Locale. Call it before the first Connect:
/// all descriptors are replaced. A locale that the machine lacks leaves the texts untranslated.
/// @return false, with the registry as it was, when the model has no translations or no such parameter.
bool SetLocaleDescriptors(unsigned int locale);

/// Two-line value names for the front panel that has two lines; takes effect at the next build.
void SetEncodeDescriptors(bool encode);
bool GetEncodeDescriptors();
