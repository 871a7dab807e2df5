/// The store's view of the product's media library: which takes exist already.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "config/base/export.h"

class Config;

/// One clip on the media.
struct VEXA_EXPORT Clip {
    std::string name;       ///< without the take number
    unsigned int take = 0;  ///< the number behind the name
};

/// Finds clips. It reads the clip-naming parameters through the Config it was made for, which is the store or, for a
/// custom take, a view of it with custom names and takes and without the gang. It must not write there: the store may
/// hold locks while it asks. Thread: the one that asked for the finder.
class VEXA_EXPORT ClipFinder {
  public:
    virtual ~ClipFinder() = default;
    /// The clips on the media. The store passes true, false, true; the meaning is the product's.
    virtual std::list<Clip> findClips(bool, bool, bool) = 0;
    /// Whether a recording may replace a clip.
    virtual bool allowOverwriteOfExistingClips() = 0;
    /// Whether takes are numbered by the custom take.
    virtual bool useCustomClipTake(bool allowOverwrite) = 0;
    /// The highest take number in use, 0 when none is.
    virtual unsigned int getLastMatchingTakeInList(const std::list<Clip>& clips, bool customTake,
                                                   std::string name) = 0;
};

/// A shared cache of the media's content: open while the object lives.
class VEXA_EXPORT MediaCache {
  public:
    virtual ~MediaCache() = default;
};

/// Implemented by a product that has media. Thread: asked by any thread that writes clip-naming parameters.
class VEXA_EXPORT MediaLibrary {
  public:
    virtual ~MediaLibrary() = default;
    /// @param config  borrowed while the finder lives. @return never null.
    virtual std::unique_ptr<ClipFinder> MakeClipFinder(Config* config) = 0;
    /// @return null when there is no such cache.
    virtual std::unique_ptr<MediaCache> OpenMediaCache(const std::string& name) = 0;
};

/// Plugs a product's library in; null brings back the default one, which reports no clips. Borrowed for the
/// life of the process. Call it before the first Connect.
VEXA_EXPORT void SetMediaLibrary(MediaLibrary* library);
/// The library that is plugged in, or the default one. Thread: any.
VEXA_EXPORT MediaLibrary& GetMediaLibrary();
