#include "config/version.h"

unsigned int vexa::VersionInt()
{
    return VEXA_VERSION_INT;
}
