#include "config/manager/range_rules.h"

#include <algorithm>

#include "config/base/log.h"
#include "config/descriptors/catalogue_config.h"
#include "config/manager/media_library.h"
#include "config/values/config_value.h"

namespace vexa {

namespace {

constexpr unsigned int kMaxTake = 999;
constexpr unsigned int kMaxMediaAvailable = 99;  // per cent, two digits on the panel

/// A store as a search for custom takes has to see it: with custom names and takes and no gang, whatever the user has
/// set. In the store itself these values stay as they are, because others read it meanwhile.
class CustomNaming : public CatalogueConfig {
  public:
    explicit CustomNaming(Config& store) : m_store(store) {}

    using Config::Set;
    using Config::SetData;
    unsigned int Get(eParam_t id) override
    {
        unsigned int value = 0;
        Get(id, value);
        return value;
    }
    bool Get(eParam_t id, unsigned int& value) override
    {
        IntegerValue* const own = Find(id);
        if (!own) return m_store.Get(id, value);
        own->Get(value);
        return true;
    }
    Serializable* GetSerializable(eParam_t id) override
    {
        IntegerValue* const own = Find(id);
        return own ? own : m_store.GetSerializable(id);
    }
    eConfigID_t GetConfigID() override { return m_store.GetConfigID(); }
    timeval GetLastConfigUpdate() override { return m_store.GetLastConfigUpdate(); }
    bool Set(eParam_t id, unsigned int value, timeval time) override { return m_store.Set(id, value, time); }
    bool Set(eParam_t id, std::string value, timeval time) override
    {
        return m_store.Set(id, std::move(value), time);
    }
    bool Get(eParam_t id, std::string& value) override { return m_store.Get(id, value); }
    bool GetData(eParam_t id, std::string& data) override { return m_store.GetData(id, data); }
    bool SetData(eParam_t id, std::string& data, timeval time) override
    {
        return m_store.SetData(id, data, time);
    }

  private:
    IntegerValue* Find(eParam_t id)
    {
        const auto found = std::ranges::find(m_own, id, [](IntegerValue& own) { return own.GetParamID(); });
        return found == std::end(m_own) ? nullptr : found;
    }

    Config& m_store;
    IntegerValue m_own[3] = {{m_store.GetConfigID(), eParamID_GangEnable, eCParam_EnumValue, 0},
                             {m_store.GetConfigID(), eParamID_UseCustomClipName, eCParam_EnumValue, 1},
                             {m_store.GetConfigID(), eParamID_UseCustomClipTake, eCParam_EnumValue, 1}};
};

unsigned int AskMedia(Config& config)
{
    MediaLibrary& library = GetMediaLibrary();
    const auto finder = library.MakeClipFinder(&config);
    const auto cache = library.OpenMediaCache("NewCache");
    const auto clips = finder->findClips(true, false, true);
    const bool custom = finder->useCustomClipTake(finder->allowOverwriteOfExistingClips());
    return finder->getLastMatchingTakeInList(clips, custom, "");
}

/// A media library that fails counts as one without clips.
unsigned int LastTakeOnMedia(Config& config)
{
    try {
        return AskMedia(config);
    } catch (...) {
        Print("ConfigManager::EnforceTakeLimits - the media library failed with an exception\n");
        return 0;
    }
}

}  // namespace

void RangeRules::Limit(eParam_t id, unsigned int& value)
{
    if (id == eParamID_CustomTake)
        LimitCustomTake(value);
    else if (id == eParamID_CurrentMediaAvailable)
        value = std::min(value, kMaxMediaAvailable);
    else if (id == eParamID_Take)
        LimitTake(value);
}

void RangeRules::LimitTake(unsigned int& value)
{
    LimitTake(m_store, value);
}

void RangeRules::LimitCustomTake(unsigned int& value)
{
    CustomNaming naming(m_store);
    LimitTake(naming, value);
}

/// @param naming  says how clips are named.
void RangeRules::LimitTake(Config& naming, unsigned int& value)
{
    const unsigned int last = LastTakeOnMedia(naming);
    if (last >= value) value = std::min(last, kMaxTake) + 1;
    value = std::min(value, kMaxTake);
}

void RangeRules::AfterNumber(eParam_t id)
{
    if (id == eParamID_ClipName || id == eParamID_ClipNumber || id == eParamID_ClipAppend ||
        id == eParamID_AlphaAppend)
        ResetTake(eParamID_Take);
}

void RangeRules::AfterText(eParam_t id)
{
    if (id == eParamID_CustomClipName) ResetTake(eParamID_CustomTake);
}

void RangeRules::ResetTake(eParam_t take)
{
    unsigned int first = 1;
    Limit(take, first);
    m_setSilently(take, first);
}

}  // namespace vexa
