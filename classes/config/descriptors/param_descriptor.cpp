#include "config/descriptors/param_descriptor.h"

#include <algorithm>

#include "config/base/semaphore_helper.h"

namespace {

/// One lock for the relations of all descriptors: look-ups are rare and short.
template <class T>
bool RemoveFirst(std::vector<T>& list, const T& item)
{
    const auto found = std::ranges::find(list, item);
    if (found == list.end()) return false;
    list.erase(found);
    return true;
}

}  // namespace

StaticLock ParamDescriptor::s_relationsLock;

void ParamDescriptor::AddDependentParamID(eParam_t id)
{
    RemoveDependentParamID(id);
    m_dependentParamIDs.push_back(id);
}

bool ParamDescriptor::RemoveDependentParamID(eParam_t id)
{
    return RemoveFirst(m_dependentParamIDs, id);
}

void ParamDescriptor::AddDependsOnParamID(eParam_t id)
{
    RemoveDependsOnParamID(id);
    m_dependsOnParamIDs.push_back(id);
}

bool ParamDescriptor::RemoveDependsOnParamID(eParam_t id)
{
    return RemoveFirst(m_dependsOnParamIDs, id);
}

ParamDescriptor::Relations ParamDescriptor::GetRelations()
{
    SemaphoreHelper hold(s_relationsLock);
    return m_relations;
}

std::vector<ParamDescriptor::Relation> ParamDescriptor::GetRelation(std::string name)
{
    SemaphoreHelper hold(s_relationsLock);
    return m_relations[name];
}

void ParamDescriptor::AddRelation(std::string name, eParam_t id, unsigned int value)
{
    SemaphoreHelper hold(s_relationsLock);
    m_relations[name].push_back({id, value});
}

void ParamDescriptor::AddClassName(std::string name)
{
    if (!HasClassName(name)) m_classNames.push_back(std::move(name));
}

bool ParamDescriptor::RemoveClassName(std::string name)
{
    return RemoveFirst(m_classNames, name);
}

bool ParamDescriptor::HasClassName(std::string name)
{
    return std::ranges::find(m_classNames, name) != m_classNames.end();
}

void ParamDescriptor::ToggleClassName(std::string name)
{
    if (HasClassName(name))
        RemoveClassName(name);
    else
        AddClassName(name);
}

void ParamDescriptor::GetAttributes(std::map<std::string, unsigned int>& out)
{
    out = {m_numericAttributes.begin(), m_numericAttributes.end()};
}

const unsigned int* ParamDescriptor::FindNumber(std::string_view key) const
{
    const auto found = m_numericAttributes.find(key);
    return found == m_numericAttributes.end() ? nullptr : &found->second;
}

bool ParamDescriptor::GetAttribute(std::string key, unsigned int& out)
{
    const unsigned int* const number = FindNumber(key);
    if (number) out = *number;
    return number != nullptr;
}

bool ParamDescriptor::GetAttribute(std::string key, std::string& out)
{
    const auto found = m_stringAttributes.find(key);
    if (found == m_stringAttributes.end()) return false;
    out = found->second;
    return true;
}
