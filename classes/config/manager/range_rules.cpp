/// The device's own rules in ConfigManager: take numbers and clip naming.
#include <algorithm>
#include <cstdio>

#include "config/manager/config_manager.h"
#include "config/manager/media_library.h"

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

/// A product's library that fails counts as one without clips.
unsigned int LastTakeOnMedia(Config& config)
{
    try {
        return AskMedia(config);
    } catch (...) {
        fputs("ConfigManager::EnforceTakeLimits - the media library failed with an exception\n", stderr);
        return 0;
    }
}

}  // namespace

bool ConfigManager::EnforceRangeLimits(eParam_t id, unsigned int& value)
{
    if (id == eParamID_CustomTake)
        EnforceCustomTakeLimits(value);
    else if (id == eParamID_CurrentMediaAvailable)
        value = std::min(value, kMaxMediaAvailable);
    else if (id == eParamID_Take)
        EnforceTakeLimits(value);
    return true;
}

/// The clip finder reads how clips are named from the store. For a custom take it must find custom names and
/// takes and no gang, whatever the user has set, so these are forced for the length of the search.
void ConfigManager::EnforceCustomTakeLimits(unsigned int& value)
{
    ListenerLock::Guard hold(m_listenerLock);  // nobody's change comes in between, and none is told of
    const unsigned int clipName = Get(eParamID_UseCustomClipName);
    const unsigned int clipTake = Get(eParamID_UseCustomClipTake);
    const unsigned int gang = Get(eParamID_GangEnable);
    SetConfigParam(eParamID_GangEnable, 0u);
    SetConfigParam(eParamID_UseCustomClipName, 1u);
    SetConfigParam(eParamID_UseCustomClipTake, 1u);
    EnforceTakeLimits(value);
    PutBack(eParamID_UseCustomClipName, 1, clipName);
    PutBack(eParamID_UseCustomClipTake, 1, clipTake);
    PutBack(eParamID_GangEnable, 0, gang);
}

/// Leaves alone what a user has changed meanwhile.
void ConfigManager::PutBack(eParam_t id, unsigned int forced, unsigned int saved)
{
    if (Get(id) == forced) SetConfigParam(id, saved);
}

bool ConfigManager::EnforceTakeLimits(unsigned int& value)
{
    const unsigned int last = LastTakeOnMedia(*this);
    if (last >= value) value = std::min(last, kMaxTake) + 1;
    value = std::min(value, kMaxTake);
    return true;
}

bool ConfigManager::ExecutePostTriggers(eParam_t id, unsigned int&)
{
    if (id == eParamID_ClipName || id == eParamID_ClipNumber || id == eParamID_ClipAppend ||
        id == eParamID_AlphaAppend)
        ResetTake(eParamID_Take);
    return true;
}

bool ConfigManager::ExecutePostTriggers(eParam_t id, std::string)
{
    if (id == eParamID_CustomClipName) ResetTake(eParamID_CustomTake);
    return true;
}

void ConfigManager::ResetTake(eParam_t take)
{
    unsigned int first = 1;
    EnforceRangeLimits(take, first);
    SetConfigParam(take, first);
}
