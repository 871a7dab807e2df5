#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"

namespace vexa::config::catalogue {

/// Group 125: changes on the media.
void CreateParamDescriptor_MediaParams()
{
    Register(Integer(PARAM_ID(MediaUpdated), "Media Updated", "MedUpd")
                 .Type(eCParam_Counter)
                 .Command()
                 .Range(0, 0xffffffff)
                 .ClassName("volatile")
                 .ClassName("do_not_validate")
                 .Description("Counts up each time files may have been deleted or added."));
}

}  // namespace vexa::config::catalogue
