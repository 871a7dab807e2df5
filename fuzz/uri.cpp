/// Addresses of configurations, which every connection takes apart.
#include "config/access/protocol/uri.h"

#include "config/access/client/network/network_client.h"
#include "config/access/client/network/network_factory.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "config/access/connector/local_config_factory.h"
#include "fuzz/harness.h"

namespace mq = vexa::config::access;
namespace net = vexa::corvalis::config::access;

namespace {

/// Whether it could lead to a server.
bool HasPort(const url& parts)
{
    const long port = strtol(parts.port.c_str(), nullptr, 10);
    return port > 0 && port <= UINT16_MAX;
}

void TestParts(const url& parts)
{
    for (const std::string& part : {parts.scheme, parts.address, parts.port}) {
        Require(!part.empty() && part.size() < 100, "a part is neither empty nor too long");
        Require(part.find_first_of(":/ ") == std::string::npos, "a part has no delimiter");
    }
    url again;
    std::string text = parts.scheme + "://" + parts.address + ":" + parts.port;
    Require(again.parse(text) && again.address == parts.address && again.port == parts.port,
            "parts make an address again");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    [[maybe_unused]] static Config& store = OpenStore();
    std::string uri(reinterpret_cast<const char*>(data), size);
    url parts;
    const bool parsed = parts.parse(uri);
    if (parsed) TestParts(parts);
    GetConfigURI(uri);
    GetEventsURI(uri);
    mq::PosixMQFactory::GetPriority(uri);
    if (parsed && HasPort(parts)) return 0;
    Require(!net::NetworkFactory().Connect(uri), "no port leads nowhere");
    if (mq::LocalConfigFactory().GetConfigID(uri) != 0) return 0;  // making another store takes long
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    connector->Disconnect(connector->Connect(uri));
    return 0;
}
