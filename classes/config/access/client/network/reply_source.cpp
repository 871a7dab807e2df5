#include "config/access/client/network/reply_source.h"

#include <cstring>

namespace vexa::corvalis::config::access {

uint32_t TypeOf(const char* data)
{
    uint32_t type;
    memcpy(&type, data, sizeof type);
    return wire::NetworkOrder::Convert(type);
}

}  // namespace vexa::corvalis::config::access
