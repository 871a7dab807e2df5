#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 15: playback, and lost frames while recording.
void CreateGroup_15()
{
    if (CProductFeatures::canDoPlayback()) {
        Register(Enum(PARAM_ID(PlayMedia), "Play Media", "Play")
                     .Values({{0, "Current Clip"}, {1, "All Clips"}, {2, "Playlist"}})
                     .Description("What the play key plays."));
        Register(Enum(PARAM_ID(LoopPlay), "Loop Play", "Loop")
                     .Values(OffOn())
                     .Description("Starts again at the end of the clip, the media or the playlist."));
        Register(Integer(PARAM_ID(CurrentPlaylist), "Current Playlist", "Playlist")
                     .NotInRegisters()
                     .Range(1, 99)
                     .Default(1)
                     .EnabledBy(eParamID_PlayMedia, 2)
                     .Description("Number of the playlist that is played."));
    }
    if (CProductFeatures::hasMedia()) {
        Register(Enum(PARAM_ID(DroppedFrames), "Dropped Frame Action", "DropActn")
                     .Values({{0, "Alarm Only"}, {1, "Stop Recording"}})
                     .Description("What happens when the media is too slow to take a frame."));
    }
}

}  // namespace vexa::config::catalogue
