#include "config/descriptors/catalogue/builders.h"

namespace vexa::config::catalogue {

void CreateGroup_NewAlarms() {}

}  // namespace vexa::config::catalogue
