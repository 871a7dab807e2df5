#include "config/descriptors/generic/generic_descriptors.h"

#include "config/base/no_destructor.h"
#include "config/descriptors/catalogue/entry.h"
#include "config/descriptors/placeholder.h"

namespace vexa::config::generic {

namespace {

NoDestructor<DescriptorTable> table;
using catalogue::Enum;
using catalogue::String;

/// The mapping layer serves these parameters; the device does not persist, preset or reset them.
template <class Entry>
void Register(Entry& entry)
{
    auto descriptor = entry.NotPersisted().NotInRegisters().NotReset().Release();
    ParamDescriptor*& slot = g_paramDescriptors[descriptor->GetParamID()];
    if (slot) RetainDescriptor(slot);
    slot = descriptor.release();
}

}  // namespace

DescriptorTable& g_paramDescriptors = *table;

void CreateGroup_0()
{
    Register(String(PARAM_ID(SystemPassword), "System Password", "Password")
                 .Length(0, 32)
                 .ClassName("password")
                 .Description("Password that web and remote-control clients must give."));
    Register(Enum(PARAM_ID(Authentication), "Authentication", "Auth")
                 .Values({{0, "Disabled"}, {1, "Basic"}})
                 .Description("Whether web and remote-control clients must give the system password."));
}

void CreateGroup_1()
{
    Register(
        Enum(PARAM_ID(ConfigCommand), "Config Command", "CfgCmd")
            .Values({{0, "Full Backup"}, {1, "Partial Backup"}, {2, "Full Restore"}, {3, "Normal Restore"}})
            .Description("Starts a backup or restore of the configuration."));
    Register(Enum(PARAM_ID(ConfigCommandStatus), "Config Command Status", "CfgStat")
                 .Values({{0, "Idle"}, {1, "In Process"}, {2, "Error"}})
                 .Description("Progress of the last configuration command."));
    Register(String(PARAM_ID(ConfigPath), "Config Path", "CfgPath")
                 .Length(0, 255)
                 .Description("File that a configuration backup is written to or restored from."));
}

void CreateDescriptors()
{
    if (!g_paramDescriptors.empty()) return;
    try {
        CreateGroup_0();
        CreateGroup_1();
    } catch (...) {
        DestroyDescriptors();  // half of them would pass for all from then on
        throw;
    }
}

void DestroyDescriptors()
{
    DeleteAllIn(g_paramDescriptors);
}

ParamDescriptor* GetDescriptor(eParam_t id)
{
    ParamDescriptor* const found = FindIn(g_paramDescriptors, id);
    return found ? found : CreatePlaceholderDescriptor(id);
}

ParamDescriptor* GetDescriptor(std::string paramIDName)
{
    return FindNameIn(g_paramDescriptors, paramIDName);
}

std::list<std::string> GetParamIDNames()
{
    return ParamIDNamesOf(g_paramDescriptors);
}

std::list<eParam_t> GetParamIDs()
{
    return ParamIDsOf(g_paramDescriptors);
}

bool IsValidParamID(eParam_t id)
{
    return g_paramDescriptors.contains(id);
}

}  // namespace vexa::config::generic
