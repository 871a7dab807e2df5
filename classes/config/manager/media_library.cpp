#include "config/manager/media_library.h"
#include "config/base/no_destructor.h"

#include <atomic>

namespace {

/// For a device without media: no clips, so every take number is free.
class NoClips : public ClipFinder {
  public:
    std::list<Clip> findClips(bool, bool, bool) override { return {}; }
    bool allowOverwriteOfExistingClips() override { return false; }
    bool useCustomClipTake(bool) override { return false; }
    unsigned int getLastMatchingTakeInList(const std::list<Clip>&, bool, std::string) override { return 0; }
};

class NoMedia : public MediaLibrary {
  public:
    std::unique_ptr<ClipFinder> MakeClipFinder(Config*) override { return std::make_unique<NoClips>(); }
    std::unique_ptr<MediaCache> OpenMediaCache(const std::string&) override { return nullptr; }
};

std::atomic<MediaLibrary*> plugged = nullptr;

}  // namespace

void SetMediaLibrary(MediaLibrary* library)
{
    plugged = library;
}

MediaLibrary& GetMediaLibrary()
{
    static vexa::NoDestructor<NoMedia> noMedia;
    MediaLibrary* const library = plugged;
    return library ? *library : *noMedia;
}
