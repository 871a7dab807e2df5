#include "mainstay/daemon.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "config/access/protocol/mq_protocol.h"
#include "config/access/server/access_rules.h"
#include "config/access/server/network/network_server.h"
#include "config/access/server/peer_stores.h"
#include "config/access/server/queues/queue_service.h"
#include "config/base/log.h"
#include "config/config_event_listener.h"
#include "config/descriptors/registry/registry.h"
#include "mainstay/actions/identity.h"
#include "mainstay/control/reports.h"
#include "mainstay/control/rollback.h"
#include "mainstay/control/server.h"
#include "mainstay/control/state_reports.h"
#include "services/product/product_id.h"

namespace net = vexa::corvalis::config::access;

namespace {

constexpr const char* kAllOfIPv4 = "0.0.0.0";
constexpr const char* kAllOfIPv6 = "::";

/// Whether a server can bind the port. The library reports a failure in several lines, so this asks first.
/// @return false, with errno.
bool IsFree(const std::string& address, int socketType, int port)
{
    addrinfo hints{};
    hints.ai_socktype = socketType;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    errno = EADDRNOTAVAIL;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return false;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owned(found, freeaddrinfo);
    const int descriptor = socket(found->ai_family, socketType | SOCK_CLOEXEC, 0);
    if (descriptor == -1) return false;
    const int yes = 1;  // connections of an earlier daemon may still be winding down
    if (socketType == SOCK_STREAM) setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (found->ai_family == AF_INET6) setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof yes);
    const bool free = bind(descriptor, found->ai_addr, found->ai_addrlen) == 0;
    const int error = errno;
    close(descriptor);
    errno = error;
    return free;
}

bool HasIPv6()
{
    const int descriptor = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1) return errno != EAFNOSUPPORT;  // else a server will say what is wrong
    close(descriptor);
    return true;
}

/// What a server listens on. Datagrams are those of IPv4.
std::vector<std::string> AddressesFor(int socketType, const std::vector<std::string>& bind)
{
    std::vector<std::string> addresses = bind;
    if (bind.empty()) {
        static const bool hasIPv6 = HasIPv6();
        addresses = {kAllOfIPv4};
        if (hasIPv6) addresses.emplace_back(kAllOfIPv6);
    }
    if (socketType == SOCK_DGRAM)
        std::erase_if(addresses, [](const std::string& one) { return one.find(':') != std::string::npos; });
    return addresses;
}

/// "TCP port 43110", "TCP 10.0.0.7 port 43110".
std::string EndpointText(const char* name, const std::string& address, int port)
{
    const bool isAll = address == kAllOfIPv4 || address == kAllOfIPv6;
    return name + (isAll ? "" : " " + address) + " port " + std::to_string(port);
}

bool CheckPort(int socketType, int port, const std::vector<std::string>& bind, const char* name)
{
    for (const std::string& address : AddressesFor(socketType, bind))
        if (!IsFree(address, socketType, port))
            return vexa::Report("mainstay: cannot serve %s: %s\n", EndpointText(name, address, port).c_str(),
                                strerror(errno));
    return true;
}

class SilentListener : public ConfigEventListener {
  public:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t, unsigned int, timeval) override { return true; }
    bool ParamChanged(eParam_t, std::string, timeval) override { return true; }
};

}  // namespace

Daemon::Daemon() = default;

Daemon::~Daemon()
{
    if (m_store) actions::SetSystemState(*m_store, actions::SystemState::kShuttingDown);
    m_control.reset();
    m_rollback.reset();  // what it puts back is told to the clients
    m_queues.reset();
    for (Server* const server : m_servers) server->Stop();
    Server::WaitUntilStopped(std::chrono::seconds(5));
    m_actions.reset();
    m_programs.reset();
    if (m_keeper) m_keeper->Stop();
    if (m_store) net::ClosePeerStore(m_store);
}

bool Daemon::Start(const Options& options)
{
    if ((!options.noTcp && !CheckPort(SOCK_STREAM, options.tcpPort, options.bind, "TCP")) ||
        (!options.noUdp && !CheckPort(SOCK_DGRAM, options.udpPort, options.bind, "UDP")))
        return false;
    m_rules = std::make_shared<net::AccessRules>();
    for (const std::string& rule : options.allow) m_rules->Add(rule);
    CreateDescriptors();
    if (!OpenState(options) || !OpenStore(options) || !StartServers(options)) return false;
    m_keeper->Start();
    return true;
}

bool Daemon::OpenState(const Options& options)
{
    m_file = std::make_unique<state::SettingsFile>(options.stateDirectory, CProductID::getProductID(),
                                                   options.historyLimit);
    if (!m_file->Open())
        return vexa::Report("mainstay: another daemon keeps its state in %s\n",
                            options.stateDirectory.c_str());
    ApplyLocale();
    m_keeper = std::make_unique<state::Keeper>(
        *m_file, std::chrono::milliseconds(static_cast<int64_t>(options.commitInterval * 1000)));
    m_keeper->Watch();
    return true;
}

/// Texts of descriptors are in the language of the time when they were built.
void Daemon::ApplyLocale()
{
    try {
        state::Values values = m_file->LoadValues()[0];
        const auto* const locale = std::get_if<unsigned int>(&values[eParamID_Locale]);
        if (locale && SetLocaleDescriptors(*locale)) m_locale = *locale;
    } catch (const std::exception&) {  // the keeper will tell
    }
}

bool Daemon::OpenStore(const Options& options)
{
    // Opened as a peer's store, so that peers that open other stores cannot use the limit up and make this
    // one unreachable.
    m_store = net::OpenPeerStore(0);
    if (!m_store) return vexa::Report("mainstay: cannot open the store\n");
    actions::SetIdentity(*m_store, MAINSTAY_VERSION);
    actions::SetSystemState(*m_store, actions::SystemState::kRunning);  // for all that its clients ever see
    m_presets = std::make_unique<actions::Presets>(*m_store, *m_file, options.media);
    m_programs = std::make_unique<actions::Programs>(options.actions);
    m_actions = std::make_unique<actions::Actions>(*m_store, *m_presets, *m_programs);
    return true;
}

bool Daemon::StartServers(const Options& options)
{
    // The queues first: they detect another daemon before anything else has started.
    return (options.noQueues || StartQueues()) &&
           (options.noTcp || StartServer(SOCK_STREAM, options.tcpPort, options, "TCP")) &&
           (options.noUdp || StartServer(SOCK_DGRAM, options.udpPort, options, "UDP")) &&
           StartControl(options);
}

std::string Daemon::Endpoints() const
{
    std::string list;
    for (const std::string& endpoint : m_endpoints) list += (list.empty() ? "" : ", ") + endpoint;
    return list;
}

std::string Daemon::StateText() const
{
    const std::string path = m_file->Path();
    return path.empty() ? "state not kept" : "state in " + path.substr(0, path.rfind('/'));
}

void Daemon::AskStore()
{
    m_store->Get(eParamID_SystemState);
    SilentListener listener;
    m_store->AddConfigEventListener(&listener);
    m_store->RemoveConfigEventListener(
        &listener);  // waits for whoever changes the store, and for his listeners
}

bool Daemon::StartServer(int socketType, int port, const Options& options, const char* name)
{
    const std::vector<std::string> addresses = AddressesFor(socketType, options.bind);
    if (addresses.empty()) return true;
    auto server = std::make_unique<Server>(AF_INET, socketType, port);
    server->ListenOn(addresses);
    server->SetRules(m_rules);
    if (!server->Init()) return false;
    for (const std::string& address : addresses)
        if (const std::string endpoint = EndpointText(name, address, server->Port());
            std::ranges::find(m_endpoints, endpoint) == m_endpoints.end())
            AddEndpoint(endpoint);
    server->SetPayloadOrder(options.payloadOrder);
    server->SetStallTimeout(std::chrono::seconds(options.stallSeconds));
    if (socketType == SOCK_DGRAM) server->Announce(0);  // clients may listen without a connection
    if (!server->Start()) return false;
    m_servers.push_back(server.release());
    return true;
}

bool Daemon::StartQueues()
{
    m_queues = std::make_unique<vexa::config::access::QueueService>();
    m_queues->SetRight(m_rules->Of(net::PeerAddress(in_addr{htonl(INADDR_LOOPBACK)}), true));
    AddEndpoint(std::string("queue ") + vexa::config::access::kRequestQueue);
    return m_queues->Start();
}

bool Daemon::StartControl(const Options& options)
{
    const std::string path = control::SocketPath(options.control, options.stateDirectory);
    if (path.empty()) return true;
    m_reports = std::make_unique<control::StateReports>(control::Device{
        *m_store, *m_file, *m_keeper, *m_presets, *m_actions, m_endpoints, m_rules->Texts(), m_locale});
    m_rollback = std::make_unique<control::Rollback>(*m_store, CProductID::getProductID());
    control::Handlers handlers;
    m_rollback->AddTo(handlers);
    m_reports->AddTo(handlers);
    control::AddReports(handlers);
    m_control = std::make_unique<control::ControlServer>(std::move(handlers));
    return m_control->Start(path) ||
           options.control.empty();  // the device goes on without one that nobody asked for
}

void Daemon::AddEndpoint(const std::string& endpoint)
{
    m_endpoints.push_back(endpoint);
}
