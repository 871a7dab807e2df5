#include "config/descriptors/catalogue/builders.h"

namespace vexa::config::catalogue {

// Places in the build order that no parameter uses in this version; the register parameters of groups 91 and
// 92 have builders of their own.

void CreateGroup_91() {}
void CreateGroup_92() {}
void CreateParamDescriptor_EngineeringDebug() {}

}  // namespace vexa::config::catalogue
