#include "device/catalogue.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <map>

#include "config/base/mutex.h"
#include "config/base/no_destructor.h"
#include "config/descriptors/registry/registry.h"
#include "services/product/product_models.h"

namespace vexa {

namespace {

constexpr std::string_view kPrefix = "eParamID_";

struct KnownCatalogues {
    Mutex lock;
    std::map<std::string, std::shared_ptr<const Catalogue>> catalogues VEXA_GUARDED_BY(lock);
};

KnownCatalogues& Known()
{
    static NoDestructor<KnownCatalogues> known;  // devices of other threads may live while the process ends
    return *known;
}

std::string_view WithoutPrefix(std::string_view name)
{
    if (name.starts_with(kPrefix)) name.remove_prefix(kPrefix.size());
    return name;
}

bool SameIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// How many letters have to be changed, added or left out, whatever their case.
size_t Distance(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j <= b.size(); ++j) {
            const bool isSame = SameIgnoringCase(a.substr(i - 1, 1), b.substr(j - 1, 1));
            const size_t changed = diagonal + (isSame ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row[b.size()];
}

}  // namespace

Catalogue::~Catalogue()
{
    DeleteAllIn(m_table);
}

std::shared_ptr<const Catalogue> Catalogue::Of(const std::string& model)
{
    static const ProductModel unknown;
    const ProductModel* const row = model.empty() ? &unknown : FindProductModel(model);
    if (!row) return nullptr;
    KnownCatalogues& known = Known();
    const MutexLock hold(known.lock);
    auto& catalogue = known.catalogues[model];
    if (!catalogue) {
        const std::shared_ptr<Catalogue> built(new Catalogue(model));
        BuildDescriptors(*row, built->m_table);
        for (const auto& [id, descriptor] : built->m_table)
            built->m_byName.emplace(NameOf(*descriptor), descriptor);
        catalogue = built;
    }
    return catalogue;
}

std::optional<std::string> Catalogue::ModelOf(unsigned int productID)
{
    if (productID == 0) return "";
    const auto row = std::ranges::find(ProductModels(), productID, &ProductModel::number);
    return row == ProductModels().end() ? std::nullopt : std::optional(std::string(row->name));
}

ParamDescriptor* Catalogue::Find(std::string_view name) const
{
    if (name.starts_with("0x") || name.starts_with("0X")) {
        uint32_t id = 0;
        const auto [end, error] = std::from_chars(name.data() + 2, name.data() + name.size(), id, 16);
        return error == std::errc() && end == name.data() + name.size() ? Find(eParam_t{id}) : nullptr;
    }
    const std::string_view wanted = WithoutPrefix(name);
    if (const auto known = m_byName.find(wanted); known != m_byName.end()) return known->second;
    const auto alike = std::ranges::find_if(
        m_byName, [&](const auto& known) { return SameIgnoringCase(known.first, wanted); });
    return alike == m_byName.end() ? nullptr : alike->second;
}

std::vector<std::string> Catalogue::Similar(std::string_view name) const
{
    constexpr size_t kMany = 3;
    const std::string_view wanted = WithoutPrefix(name);
    std::multimap<size_t, std::string> byDistance;
    for (const auto& [id, descriptor] : m_table) {
        const std::string known = NameOf(*descriptor);
        byDistance.emplace(Distance(wanted, known), known);
    }
    std::vector<std::string> similar;
    for (const auto& [distance, known] : byDistance)
        if (similar.size() < kMany && distance <= std::max<size_t>(2, wanted.size() / 4))
            similar.push_back(known);
    return similar;
}

std::string Catalogue::NameOf(ParamDescriptor& descriptor)
{
    return std::string(WithoutPrefix(descriptor.GetParamIDName()));
}

namespace {

/// Lists descriptors, each behind its masters.
class SettingOrder {
  public:
    explicit SettingOrder(const std::vector<ParamDescriptor*>& descriptors)
    {
        for (ParamDescriptor* const descriptor : descriptors)
            m_left.emplace(descriptor->GetParamID(), descriptor);
        for (ParamDescriptor* const descriptor : descriptors) Add(descriptor->GetParamID());
    }
    std::vector<ParamDescriptor*> Take() { return std::move(m_ordered); }

  private:
    void Add(eParam_t id)
    {
        const auto found = m_left.find(id);
        if (found == m_left.end()) return;
        ParamDescriptor* const descriptor = found->second;
        m_left.erase(found);  // first, which cuts circles
        for (const auto& [kind, relations] : descriptor->GetRelations())
            for (const ParamDescriptor::Relation& relation : relations) Add(relation.paramID);
        if (const unsigned int* const limit = descriptor->FindNumber("dependent_minimum"))
            Add(eParam_t{*limit});
        m_ordered.push_back(descriptor);
    }

    std::map<eParam_t, ParamDescriptor*> m_left;
    std::vector<ParamDescriptor*> m_ordered;
};

}  // namespace

bool IsSetting(ParamDescriptor& descriptor)
{
    const bool isNote =
        descriptor.HasClassName("hidden_param") && descriptor.GetFactoryResetType() == eFactoryReset_Exclude;
    return descriptor.GetPersistenceType() == ePersist && !descriptor.HasClassName("readonly") && !isNote;
}

std::vector<ParamDescriptor*> InSettingOrder(const std::vector<ParamDescriptor*>& descriptors)
{
    return SettingOrder(descriptors).Take();
}

}  // namespace vexa
