#include "config/access/connector/reachability.h"

#include "config/access/client/network/network_client.h"

bool vexa::IsReachable(const Config& config)
{
    const auto* const client = dynamic_cast<const corvalis::config::access::NetworkClient*>(&config);
    return !client || client->IsReachable();
}
