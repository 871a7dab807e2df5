#include "config/base/semaphore_helper.h"

#include <cerrno>

#include "config/base/log.h"

namespace {

int WaitThroughSignals(sem_t* semaphore)
{
    int result;
    do result = sem_wait(semaphore);
    while (result != 0 && errno == EINTR);
    return result;
}

}  // namespace

SemaphoreHelper::SemaphoreHelper(sem_t* semaphore) : m_semaphore(semaphore), m_owesPost(semaphore != nullptr)
{
    if (m_owesPost && WaitThroughSignals(m_semaphore) != 0)
        vexa::PrintError("Semaphore(): call to sem_wait failed\n");
}

SemaphoreHelper::~SemaphoreHelper()
{
    if (m_owesPost && sem_post(m_semaphore) != 0)
        vexa::PrintError("SemaphoreHelper::~SemaphoreHelper failed to post\n");
}

bool SemaphoreHelper::Init(sem_t* semaphore)
{
    if (sem_init(semaphore, 0, 1) == 0) return true;
    vexa::PrintError("SemaphoreHelper::Init - failed\n");
    return false;
}

bool SemaphoreHelper::Destroy(sem_t* semaphore)
{
    if (sem_destroy(semaphore) == 0) return true;
    vexa::PrintError("SemaphoreHelper::Destroy - failed\n");
    return false;
}
