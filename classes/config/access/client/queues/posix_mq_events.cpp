/// PosixMQClient: listeners, notifications and waits for events.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/io/connection_utilities.h"
#include "config/access/io/mq_notification.h"
#include "config/base/no_signals.h"
#include "config/descriptors/param_descriptor.h"

namespace vexa::config::access {

namespace {

void PrintOfProcess(const char* what)
{
    const std::string name = ConnectionUtilities::GetPIDName(static_cast<unsigned int>(getpid()));
    fprintf(stderr, "[%s] PosixMQClient::MQNotifyHandler - %s\n", name.c_str(), what);
}

}  // namespace

/// Marks this thread as one that calls listeners of a client, which may be inside a callback of another one.
class PosixMQClient::CallbackScope {
  public:
    explicit CallbackScope(const PosixMQClient* client) : m_client(client), m_outer(s_innermost)
    {
        s_innermost = this;
    }
    ~CallbackScope() { s_innermost = m_outer; }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

    static bool Covers(const PosixMQClient* client)
    {
        const CallbackScope* scope = s_innermost;
        while (scope && scope->m_client != client) scope = scope->m_outer;
        return scope != nullptr;
    }

  private:
    static inline thread_local const CallbackScope* s_innermost = nullptr;

    const PosixMQClient* const m_client;
    const CallbackScope* const m_outer;
};

bool PosixMQClient::IsInCallback() const
{
    return CallbackScope::Covers(this);
}

// --- listeners ---

XCONFIGMGR_EVENT_HANDLER_REQUEST_T PosixMQClient::ListenerRequest(eMessageType_t type) const
{
    XCONFIGMGR_EVENT_HANDLER_REQUEST_T request;
    request.msgtype = type;
    request.info = {m_connectionID, 0, 0, m_priority};
    return request;
}

/// Registers or unregisters the connection. Failures print what the operation is called.
bool PosixMQClient::TellDaemon(eMessageType_t type, const char* operation)
{
    const auto complain = [&](const std::string& what) {
        fprintf(stderr, "PosixMQClient::%s - %s\n", operation, what.c_str());
        return false;
    };
    auto request = ListenerRequest(type);
    MQMessage answer;
    switch (Exchange(request, answer)) {
        case Outcome::kNotSent:
            perror((std::string("PosixMQClient::") + operation + " - mq_send failed").c_str());
            return complain("mq_send failed");
        case Outcome::kFailed:
            perror((std::string("PosixMQClient::") + operation + " - mq_receive failed").c_str());
            return false;
        case Outcome::kAnswered:
            break;
    }
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return complain("IsValidResponse returned false");
    if (answer.msgtype != ResponseTo(type)) {
        return complain(type == XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST
                            ? "msgtype != XCFG_ADD_CONFIG_EVENT_LISTENER_RESPONSE"
                            : "msgtype != XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE");
    }
    if (answer.listenerError == 0) return true;
    return complain("error = " + std::to_string(static_cast<int>(answer.listenerError)));
}

bool PosixMQClient::AddConfigEventListener(ConfigEventListener* listener)
{
    if (!listener || IsInCallback()) return false;
    return Do("AddConfigEventListener", [&] { return AddListener(listener); });
}

bool PosixMQClient::AddListener(ConfigEventListener* listener)
{
    SemaphoreHelper hold(m_listenerLock);
    if (!m_listeners.empty()) {
        m_listeners.push_back(listener);
        return true;
    }
    if (!TellDaemon(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, "AddConfigEventListener")) return false;
    m_reader.SetDelivering(true);
    EnableMQEvents(true);
    m_listeners.push_back(listener);
    // What came before the notification was on is not told by it.
    m_reader.Drain();
    if (m_reader.BeginDelivery()) StartDelivery();
    return true;
}

bool PosixMQClient::RemoveConfigEventListener(ConfigEventListener* listener)
{
    if (IsInCallback()) return false;
    return Do("RemoveConfigEventListener", [&] { return RemoveListener(listener); });
}

bool PosixMQClient::RemoveListener(ConfigEventListener* listener)
{
    SemaphoreHelper hold(m_listenerLock);
    const auto entry = std::ranges::find(m_listeners, listener);
    if (entry != m_listeners.end()) m_listeners.erase(entry);
    if (!m_listeners.empty()) return true;
    if (!TellDaemon(XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST, "RemoveConfigEventListener")) return false;
    EnableMQEvents(false);
    m_reader.SetDelivering(false);
    // Who waits for events stays registered, and what was kept is for him. A listener that is added later must
    // not hear old values.
    if (m_waitRegistered)
        TellDaemon(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, "RemoveConfigEventListener");
    else
        m_reader.DropEvents();
    return true;
}

// --- notifications ---

bool PosixMQClient::EnableMQEvents(bool on)
{
    const std::lock_guard hold(m_notifyLock);
    m_notifyWanted = on;
    if (on) return Arm();
    if (mq_notify(m_responseQueue, nullptr) == 0) return true;
    perror("PosixMQClient::EnableMQEvents - mq_notify (disable)");
    return false;
}

/// A notification fires once. One that fires late may find that the next one is on already: that is success.
bool PosixMQClient::Arm()
{
    mq_attr nonBlocking{};
    nonBlocking.mq_flags = O_NONBLOCK;
    if (mq_setattr(m_responseQueue, &nonBlocking, nullptr) != 0) {
        perror("PosixMQClient::EnableMQEvents - mq_setattr failed to set O_NONBLOCK on response queue");
        return false;
    }
    if (NotifyOnThread(m_responseQueue, MQNotifyHandler, this) == 0 || errno == EBUSY) return true;
    perror("PosixMQClient::EnableMQEvents - mq_notify (enable)");
    return false;
}

void PosixMQClient::MQNotifyHandler(sigval value)
{
    const NoSignals inCallbacks;
    bool healthy = true;
    try {
        const LiveClients::Use client(static_cast<PosixMQClient*>(value.sival_ptr));
        if (client) healthy = client->HandleNotification();
    } catch (...) {
        PrintOfProcess("exception!!!!");
    }
    if (healthy) return;
    PrintOfProcess("call to EnableMQEvents failed!");
    exit(-1);
}

/// @return false when the next notification cannot be turned on.
bool PosixMQClient::HandleNotification()
{
    // An answer that is faster than the wait for it fires as well. One thread per request would cost too much.
    m_reader.AwaitQuiet();
    {
        const std::lock_guard hold(m_notifyLock);
        if (!m_notifyWanted) return true;
        // Before the queue is read: a message that comes in between is told of.
        if (!Arm()) return false;
    }
    ProcessEvents();
    return true;
}

// --- delivery ---

bool PosixMQClient::ProcessEvents()
{
    const LiveClients::Use use(this);  // a callback may disconnect the client
    if (!use) return false;
    if (!m_reader.Drain()) {
        perror("PosixMQClient::ProcessMessages - mq_receive\n");
        fputs("PosixMQClient::ProcessMessages - mq_receive ERROR\n", stderr);
        fflush(stderr);
        return false;
    }
    if (m_reader.BeginDelivery()) DeliverEvents();
    return true;
}

/// For events that a request has met. Its thread may hold locks that a callback takes.
void PosixMQClient::StartDelivery()
{
    LiveClients::Use use(this);
    if (!use) return;
    try {
        const NoSignals inherited;
        std::thread([use = std::move(use)] { use->DeliverEvents(); }).detach();
    } catch (...) {
        m_reader.EndDelivery();  // no thread, or no memory, for now
    }
}

void PosixMQClient::DeliverEvents()
{
    try {
        while (DeliverNext()) {
        }
    } catch (...) {
        PrintOfProcess("exception!!!!");
        m_reader.EndDelivery();
    }
}

/// The listener lock is held from taking to delivering, which keeps the order. @return false at the end.
bool PosixMQClient::DeliverNext()
{
    SemaphoreHelper hold(m_listenerLock);
    MQMessage message;
    if (!m_reader.NextToDeliver(message)) return false;
    if (message.msgtype == XCFG_PARAM_CHANGED_EVENT)
        ProcessConfigParamEvent(message, nullptr);
    else if (message.msgtype == XCFG_PARAM_STRING_CHANGED_EVENT)
        ProcessConfigStreamParamEvent(message, nullptr);
    else
        fprintf(stderr, "Unknown message type %d\n", static_cast<int>(message.msgtype));
    return true;
}

template <class Call>
void PosixMQClient::CallListeners(const Call& call)
{
    const CallbackScope scope(this);
    for (size_t i = 0; i < m_listeners.size() && !m_reader.IsStopped(); ++i) {
        try {
            call(*m_listeners[i]);
        } catch (...) {
            PrintOfProcess("exception!!!!");
        }
    }
}

bool PosixMQClient::ProcessConfigParamEvent(const MQMessage& message, ConfigEvent* event)
{
    if (message.info.connectionID != m_connectionID) return false;
    const timeval time = TimeOf(message);
    CallListeners(
        [&](ConfigEventListener& listener) { listener.ParamChanged(message.paramID, message.value, time); });
    if (!event) return true;
    event->paramID = message.paramID;
    if (ParamDescriptor* const descriptor = GetParamDescriptor(message.paramID))
        event->paramType = descriptor->GetParamType();
    event->value = message.value;
    event->time = time;
    return true;
}

bool PosixMQClient::ProcessConfigStreamParamEvent(const MQMessage& message, ConfigEvent* event)
{
    if (message.info.connectionID != m_connectionID) return false;
    if (!message.HasStream()) {
        fputs("PosixMQClient::ProcessConfigStreamParamEvent - invalid streamLength\n", stderr);
        return false;
    }
    std::string text;
    message.ReadText(text);  // any other object counts as an empty text
    const timeval time = TimeOf(message);
    CallListeners([&](ConfigEventListener& listener) { listener.ParamChanged(message.paramID, text, time); });
    if (!event) return true;
    event->paramID = message.paramID;
    event->paramType = eCParam_StringValue;
    event->text = text;
    event->time = time;
    return true;
}

// --- waiting for events ---

/// The daemon tells of an error at two places; listeners look at one, waits at the other.
bool PosixMQClient::RegisterWait()
{
    auto request = ListenerRequest(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST);
    MQMessage answer;
    const Outcome outcome = Exchange(request, answer);
    if (outcome != Outcome::kAnswered) {
        perror("PosixMQClient::WaitForConfigEvent - mq_receive failed");
        fprintf(stderr, "PosixMQClient::WaitForConfigEvent - %s failed\n",
                outcome == Outcome::kNotSent ? "mq_send" : "mq_receive");
        return false;
    }
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info)) {
        fputs("PosixMQClient::WaitForConfigEvent(): response message did not match response message info\n",
              stderr);
        return false;
    }
    if (answer.msgtype != XCFG_ADD_CONFIG_EVENT_LISTENER_RESPONSE) {
        fputs("PosixMQClient::WaitForConfigEvent - response is not a event listener response\n", stderr);
        return false;
    }
    if (answer.error != 0) {
        fputs("PosixMQClient::WaitForConfigEvent - error != 0\n", stderr);
        return false;
    }
    m_waitRegistered = true;
    return true;
}

bool PosixMQClient::WaitForConfigEvent(ConfigEvent& event, long, long)
{
    if (IsInCallback()) return false;
    return Do("WaitForConfigEvent", [&] { return WaitForEvent(event); });
}

bool PosixMQClient::WaitForEvent(ConfigEvent& event)
{
    if (!m_waitRegistered && !RegisterWait()) return false;
    MQReader::EventWait wait(m_reader);
    for (;;) {
        const MQReader::Result result = wait.Await();
        if (result == MQReader::Result::kStopped) return false;
        if (result != MQReader::Result::kReceived) {
            perror("PosixMQClient::WaitForConfigEvent - mq_receive\n");
            fputs("PosixMQClient::WaitForConfigEvent - mq_receive ERROR\n", stderr);
            fflush(stderr);
            return false;
        }
        SemaphoreHelper hold(m_listenerLock);
        MQMessage message;
        if (!m_reader.TakeEvent(message)) continue;  // another thread was faster
        if (message.msgtype == XCFG_PARAM_CHANGED_EVENT) return ProcessConfigParamEvent(message, &event);
        if (message.msgtype == XCFG_PARAM_STRING_CHANGED_EVENT)
            return ProcessConfigStreamParamEvent(message, &event);
        fprintf(stderr, "PosixMQClient::WaitForConfigEvent - Unknown message type %d\n",
                static_cast<int>(message.msgtype));
        return true;
    }
}

}  // namespace vexa::config::access
