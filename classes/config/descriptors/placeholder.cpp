#include "config/descriptors/placeholder.h"

#include <cstdio>
#include <list>

#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"

namespace {

StaticLock keptLock;
vexa::NoDestructor<std::list<ParamDescriptor*>> kept VEXA_GUARDED_BY(keptLock);

}  // namespace

ParamDescriptor* CreatePlaceholderDescriptor(eParam_t id)
{
    char text[16];
    snprintf(text, sizeof text, "%d.%d.%d.%d", id >> 24, id >> 16 & 255, id >> 8 & 255, id & 255);
    auto* const descriptor = new ParamDescriptor;
    descriptor->SetParamID(id);
    descriptor->SetParamIDName(text);
    descriptor->SetName(text);
    RetainDescriptor(descriptor);
    return descriptor;
}

void RetainDescriptor(ParamDescriptor* descriptor)
{
    SemaphoreHelper hold(keptLock);
    kept->push_back(descriptor);
}

size_t CountRetainedDescriptors()
{
    SemaphoreHelper hold(keptLock);
    return kept->size();
}
