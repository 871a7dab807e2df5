#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

/// Group 16: formatting media and deleting clips.
void CreateGroup_16()
{
    if (!CProductFeatures::hasMedia()) return;

    Register(Enum(PARAM_ID(FileSystemFormat), "File System", "File Sys")
                 .Values(FileSystems())
                 .Description("File system that formatting puts on the media."));
    Register(Enum(PARAM_ID(FormatMedia), "Format Media", "Format")
                 .Command()
                 .Values({{0, "Cancel"}, {1, "Format"}})
                 .Description("Erases the media in the selected slot."));
    Register(Enum(PARAM_ID(DeleteMode), "Delete Mode", "Del Mode")
                 .Default(1)
                 .Values({{0, "Disabled"}, {1, "Ask First"}, {2, "Immediate"}})
                 .ClassName("webapp_hidden")
                 .Description("Whether clips may be deleted from the front panel."));
    Register(Enum(PARAM_ID(DeleteCurrentClip), "Delete Current Clip", "Del Clip")
                 .Command()
                 .Values({{0, "Cancel"}, {1, "Delete"}})
                 .DisabledBy(eParamID_DeleteMode, 0)
                 .Description("Deletes the clip that is selected for playback."));
}

}  // namespace vexa::config::catalogue
