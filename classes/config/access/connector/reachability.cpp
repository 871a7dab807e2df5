#include "config/access/connector/reachability.h"

#include <new>

#include "config/base/log.h"
#include "config/config.h"

bool vexa::IsReachable(const Config& config)
{
    const auto* const connection = dynamic_cast<const Connection*>(&config);
    return !connection || connection->IsReachable();
}

bool vexa::AddConnectionListener(Config& config, ConnectionListener* listener)
try {
    auto* const connection = dynamic_cast<Connection*>(&config);
    if (!connection || !listener) return false;
    connection->AddConnectionListener(listener);
    return true;
} catch (const std::bad_alloc&) {
    return Report("AddConnectionListener - no memory\n");
}

void vexa::RemoveConnectionListener(Config& config, ConnectionListener* listener)
{
    if (auto* const connection = dynamic_cast<Connection*>(&config))
        connection->RemoveConnectionListener(listener);
}
