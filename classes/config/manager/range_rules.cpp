#include "config/manager/range_rules.h"

#include <algorithm>

#include "config/base/log.h"
#include "config/config.h"
#include "config/manager/media_library.h"

namespace vexa {

namespace {

constexpr unsigned int kMaxTake = 999;
constexpr unsigned int kMaxMediaAvailable = 99;  // per cent, two digits on the panel

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

/// The clip finder reads how clips are named from the store. For a custom take it must find custom names and
/// takes and no gang, whatever the user has set, so these are forced for the length of the search.
void RangeRules::LimitCustomTake(unsigned int& value)
{
    const ListenerList::Turn turn(m_listeners);  // no other change in between, and no event
    const unsigned int clipName = m_store.Get(eParamID_UseCustomClipName);
    const unsigned int clipTake = m_store.Get(eParamID_UseCustomClipTake);
    const unsigned int gang = m_store.Get(eParamID_GangEnable);
    m_setSilently(eParamID_GangEnable, 0);
    m_setSilently(eParamID_UseCustomClipName, 1);
    m_setSilently(eParamID_UseCustomClipTake, 1);
    LimitTake(value);
    PutBack(eParamID_UseCustomClipName, 1, clipName);
    PutBack(eParamID_UseCustomClipTake, 1, clipTake);
    PutBack(eParamID_GangEnable, 0, gang);
}

/// Restores a forced value, unless a user has changed it meanwhile.
void RangeRules::PutBack(eParam_t id, unsigned int forced, unsigned int saved)
{
    if (m_store.Get(id) == forced) m_setSilently(id, saved);
}

void RangeRules::LimitTake(unsigned int& value)
{
    const unsigned int last = LastTakeOnMedia(m_store);
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
