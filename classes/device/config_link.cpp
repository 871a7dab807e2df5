#include "device/config_link.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "config/access/connector/config_factory_impl.h"
#include "config/access/connector/reachability.h"
#include "config/access/protocol/mq_protocol.h"
#include "config/access/protocol/value_payload.h"
#include "config/base/mutex.h"
#include "config/base/no_destructor.h"
#include "config/descriptors/registry/registry.h"

namespace vexa {

namespace mq = config::access;

namespace {

/// One for all devices of the process: it keeps the daemon's queue open as long as the process lives.
struct SharedFactory {
    Mutex lock;
    std::unique_ptr<mq::PosixMQFactory> factory VEXA_GUARDED_BY(lock);
};

/// @return null, with errno, without a daemon.
mq::PosixMQFactory* QueueFactory()
{
    static NoDestructor<SharedFactory> shared;
    const MutexLock hold(shared->lock);
    if (!shared->factory) {
        const mqd_t queue = mq_open(mq::kRequestQueue, O_RDWR | O_CLOEXEC);
        if (queue == -1) return nullptr;
        shared->factory = std::make_unique<mq::PosixMQFactory>(queue);
    }
    return shared->factory.get();
}

}  // namespace

ConfigLink::ConfigLink(const DeviceAddress& address, LinkEvents& events)
    : m_address(address), m_events(events), m_news(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
}

ConfigLink::~ConfigLink()
{
    if (!m_config) return;
    m_config->RemoveConfigEventListener(this);
    RemoveConnectionListener(*m_config, this);
    m_disconnect();
}

bool ConfigLink::Open(const Deadline& deadline, int, LinkFailure& failure)
{
    CreateDescriptors();
    if (IsQueue())
        OpenQueue(deadline, failure);
    else
        OpenStore();
    if (!m_config) return false;
    AddConnectionListener(*m_config, this);
    if (m_config->AddConfigEventListener(this)) return true;
    failure = {LinkFailure::Kind::kRefused, "it does not tell its changes"};
    return false;
}

void ConfigLink::OpenStore()
{
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    m_config = connector->Connect("local:configid=" + std::to_string(m_address.configID));
    m_disconnect = [connector, config = m_config] { connector->Disconnect(config); };
    m_limit = [](const Deadline&) {};
}

bool ConfigLink::OpenQueue(const Deadline& deadline, LinkFailure& failure)
{
    mq::PosixMQFactory* const factory = QueueFactory();
    if (!factory) {
        failure = {LinkFailure::Kind::kLost,
                   std::string("the queue ") + mq::kRequestQueue + ": " + strerror(errno)};
        if (errno == EACCES) failure.reason += "; it is open to the user and the group of the daemon";
        return false;
    }
    factory->SetConnectTimeout(deadline.Left());
    mq::PosixMQClient* const client = factory->Connect("");
    if (!client) {
        failure = {LinkFailure::Kind::kLost, "the connection cannot be made"};
        if (deadline.IsOver())
            failure = {LinkFailure::Kind::kTimedOut, "no answer to the request to connect in time"};
        return false;
    }
    m_config = client;
    m_disconnect = [factory, client] { factory->Disconnect(client); };
    m_limit = [client](const Deadline& limit) { client->SetReplyTimeout(limit.Left()); };
    m_limit(deadline);
    return true;
}

bool ConfigLink::Exchange(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                          const Deadline& deadline, int, LinkFailure& failure)
{
    replies.assign(requests.size(), {});
    for (size_t i = 0; i < requests.size() && !deadline.IsOver(); ++i) {
        m_limit(deadline);
        replies[i] = Do(requests[i]);
        if (IsReachable(*m_config)) continue;
        failure = {LinkFailure::Kind::kLost, "no answer from the daemon"};
        return false;
    }
    return !deadline.IsOver() || NotReady(Ready::kTimedOut, "no answer", failure);
}

LinkReply ConfigLink::Do(const LinkRequest& request)
{
    LinkReply reply;
    std::string text;
    bool isDone = true;
    switch (request.kind) {
        case LinkRequest::Kind::kGetNumber:
            reply.value = m_config->Get(request.id);
            break;
        case LinkRequest::Kind::kGetText:
            isDone = m_config->Get(request.id, text);
            reply.value = std::move(text);
            break;
        case LinkRequest::Kind::kGetData:
            isDone = m_config->GetData(request.id, text);
            reply.value = std::move(text);
            break;
        case LinkRequest::Kind::kSet:
            isDone = std::holds_alternative<unsigned int>(request.value)
                         ? m_config->Set(request.id, std::get<unsigned int>(request.value))
                         : m_config->Set(request.id, std::get<std::string>(request.value));
            break;
        case LinkRequest::Kind::kSetData:
            text = std::get<std::string>(request.value);
            isDone = m_config->SetData(request.id, text);
    }
    if (isDone && (!IsQueue() || LastAnswer() == Answer::kGiven))
        reply.kind = LinkReply::Kind::kGiven;
    else if (!IsQueue() || LastAnswer() == Answer::kRefused)
        reply.kind = LinkReply::Kind::kRefused;
    return reply;
}

bool ConfigLink::Receive(LinkFailure& failure)
{
    eventfd_t ignored;
    eventfd_read(m_news.Get(), &ignored);
    if (!m_isLost) return true;
    failure = {LinkFailure::Kind::kLost, "the daemon has ended"};
    return false;
}

bool ConfigLink::ParamChanged(eParam_t id, unsigned int value, timeval time)
{
    m_events.Changed(id, value, time);
    return true;
}

bool ConfigLink::ParamChanged(eParam_t id, std::string value, timeval time)
{
    m_events.Changed(id, std::move(value), time);
    return true;
}

bool ConfigLink::DataChanged(eParam_t id, std::string& data, timeval time)
{
    m_events.Changed(id, data, time);
    return true;
}

void ConfigLink::ConnectionChanged(ConnectionChange change)
{
    if (change == ConnectionChange::kLost)
        m_isLost = true;
    else
        m_events.ChangesMissing();
    eventfd_write(m_news.Get(), 1);
}

}  // namespace vexa
