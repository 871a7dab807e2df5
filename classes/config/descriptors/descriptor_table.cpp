#include "config/descriptors/descriptor_table.h"

#include <atomic>

#include "config/base/no_destructor.h"
#include "config/descriptors/placeholder.h"

namespace {

vexa::NoDestructor<DescriptorTable>
    table;  // a worker thread may still look a descriptor up while the process ends
std::atomic<bool> encodeDescriptors = false;

}  // namespace

DescriptorTable& g_paramDescriptors = *table;

ParamDescriptor* FindDescriptor(eParam_t id)
{
    return FindIn(g_paramDescriptors, id);
}

ParamDescriptor* GetDescriptor(eParam_t id)
{
    ParamDescriptor* const found = FindDescriptor(id);
    return found ? found : CreatePlaceholderDescriptor(id);
}

ParamDescriptor* GetDescriptor(std::string paramIDName)
{
    return FindNameIn(g_paramDescriptors, paramIDName);
}

bool IsValidParamID(eParam_t id)
{
    return FindDescriptor(id) != nullptr;
}

eParam_t GetParamNameParamID(std::string paramIDName)
{
    ParamDescriptor* const found = GetDescriptor(std::move(paramIDName));
    return found ? found->GetParamID() : eParam_t{};
}

std::list<std::string> GetParamIDNames()
{
    return ParamIDNamesOf(g_paramDescriptors);
}

std::list<eParam_t> GetParamIDs()
{
    return ParamIDsOf(g_paramDescriptors);
}

void SetEncodeDescriptors(bool encode)
{
    encodeDescriptors = encode;
}

bool GetEncodeDescriptors()
{
    return encodeDescriptors;
}
