#include "config/access/client/queues/mq_events.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/message_queue.h"
#include "config/access/io/mq_notification.h"
#include "config/base/log.h"
#include "config/descriptors/descriptor_table.h"

namespace vexa::config::access {

/// Marks this thread as calling the listeners of a connection, perhaps inside a callback of another
/// connection.
class MQEvents::CallbackScope {
  public:
    explicit CallbackScope(const MQEvents* events) : m_events(events), m_outer(s_innermost)
    {
        s_innermost = this;
    }
    ~CallbackScope() { s_innermost = m_outer; }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

    static bool Covers(const MQEvents* events)
    {
        const CallbackScope* scope = s_innermost;
        while (scope && scope->m_events != events) scope = scope->m_outer;
        return scope != nullptr;
    }

  private:
    static inline thread_local const CallbackScope* s_innermost = nullptr;

    const MQEvents* const m_events;
    const CallbackScope* const m_outer;
};

void MQEvents::ReportOfProcess(const char* what)
{
    const std::string name = ConnectionUtilities::GetPIDName(static_cast<unsigned int>(getpid()));
    Print("[%s] PosixMQClient::MQNotifyHandler - %s\n", name.c_str(), what);
}

MQEvents::MQEvents(MQConnection& connection, void (*onMessage)(sigval), void* value)
    : m_connection(connection), m_reader(connection.Reader()), m_onMessage(onMessage), m_value(value)
{
}

bool MQEvents::IsInCallback() const
{
    return CallbackScope::Covers(this);
}

// --- listeners ---

XCONFIGMGR_EVENT_HANDLER_REQUEST_T MQEvents::ListenerRequest(eMessageType_t type) const
{
    XCONFIGMGR_EVENT_HANDLER_REQUEST_T request;
    request.msgtype = type;
    request.info = m_connection.Info(0);
    return request;
}

/// Registers or unregisters the connection. A failure prints the operation's name.
bool MQEvents::TellDaemon(const ListenerList::Turn&, eMessageType_t type, const char* operation)
{
    auto request = ListenerRequest(type);
    MQMessage answer;
    switch (m_connection.Exchange(request, answer)) {
        case Outcome::kNotSent:
            PrintError((std::string("PosixMQClient::") + operation + " - mq_send failed").c_str());
            return Report("PosixMQClient::%s - mq_send failed\n", operation);
        default:
            PrintError((std::string("PosixMQClient::") + operation + " - mq_receive failed").c_str());
            return false;
        case Outcome::kReceived:
            break;
    }
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return Report("PosixMQClient::%s - IsValidResponse returned false\n", operation);
    if (answer.msgtype != ResponseTo(type))
        return Report("PosixMQClient::%s - msgtype != XCFG_%s_CONFIG_EVENT_LISTENER_RESPONSE\n", operation,
                      type == XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST ? "ADD" : "REMOVE");
    if (answer.listenerError == 0) return true;
    return Report("PosixMQClient::%s - error = %d\n", operation, static_cast<int>(answer.listenerError));
}

bool MQEvents::AddListener(ConfigEventListener* listener)
{
    const ListenerList::Turn turn(m_listeners);
    if (!m_listeners.IsEmpty()) {
        m_listeners.Add(listener);
        return true;
    }
    if (!TellDaemon(turn, XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, "AddConfigEventListener")) return false;
    m_reader.SetDelivering(true);
    Enable(true);
    m_listeners.Add(listener);
    // The notification does not report the messages that came before it was on.
    m_reader.Drain();
    m_reader.DeliverKept();
    return true;
}

bool MQEvents::RemoveListener(ConfigEventListener* listener)
{
    const ListenerList::Turn turn(m_listeners);
    m_listeners.RemoveOne(listener);
    if (!m_listeners.IsEmpty()) return true;
    if (!TellDaemon(turn, XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST, "RemoveConfigEventListener"))
        return false;
    Enable(false);
    m_reader.SetDelivering(false);
    // A WaitForEvent caller stays registered, and the events kept so far belong to it. Without one they are
    // dropped: a listener that is added later must not hear old values.
    if (m_waitRegistered)
        TellDaemon(turn, XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, "RemoveConfigEventListener");
    else
        m_reader.DropEvents();
    return true;
}

/// After the daemon has forgotten this connection, or another one has taken its place.
void MQEvents::RegisterAnew(const ListenerList::Turn& turn)
{
    const bool isRegistered = !m_listeners.IsEmpty() || m_waitRegistered;
    if (isRegistered && ReopenIfRemoved(kRequestQueue, m_connection.requestQueue))
        TellDaemon(turn, XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, "AddConfigEventListener");
}

// --- notifications ---

bool MQEvents::Enable(bool on)
{
    const MutexLock hold(m_notifyLock);
    m_notifyWanted = on;
    if (on) return Arm();
    if (mq_notify(m_connection.responseQueue, nullptr) == 0) return true;
    PrintError("PosixMQClient::EnableMQEvents - mq_notify (disable)");
    return false;
}

/// A notification fires once. When it fires late, the next one may be on already; but it may also be another
/// process that has one on.
bool MQEvents::Arm()
{
    mq_attr nonBlocking{};
    nonBlocking.mq_flags = O_NONBLOCK;
    if (mq_setattr(m_connection.responseQueue, &nonBlocking, nullptr) != 0) {
        PrintError("PosixMQClient::EnableMQEvents - mq_setattr failed to set O_NONBLOCK on response queue");
        return false;
    }
    int result = NotifyOnThread(m_connection.responseQueue, m_onMessage, m_value);
    if (result == -1 && errno == EBUSY) {
        mq_notify(m_connection.responseQueue, nullptr);  // takes back only this process's own
        result = NotifyOnThread(m_connection.responseQueue, m_onMessage, m_value);
    }
    if (result == 0) return true;
    PrintError("PosixMQClient::EnableMQEvents - mq_notify (enable)");
    return false;
}

void MQEvents::Stop()
{
    m_listeners.Clear();
    bool notifying;
    {
        const MutexLock hold(m_notifyLock);
        notifying = m_notifyWanted;
    }
    if (notifying) Enable(false);
}

bool MQEvents::HandleNotification()
{
    // An answer that comes before its exchange reads the queue fires as well. Turned on again at once, the
    // notification would start a thread for each request, which costs too much.
    m_reader.AwaitQuiet();
    {
        const MutexLock hold(m_notifyLock);
        if (!m_notifyWanted) return true;
        // Before the queue is read, so that no message in between is missed.
        if (!Arm()) return false;
    }
    ProcessEvents();
    return true;
}

// --- delivery ---

bool MQEvents::ProcessEvents()
{
    if (!m_reader.Drain()) {
        PrintError("PosixMQClient::ProcessMessages - mq_receive\n");
        Print("PosixMQClient::ProcessMessages - mq_receive ERROR\n");
        return false;
    }
    if (m_reader.BeginDelivery()) DeliverEvents();
    return true;
}

void MQEvents::DeliverEvents()
{
    try {
        while (DeliverNext()) {
        }
    } catch (...) {
        ReportException();
        m_reader.EndDelivery();
    }
}

/// The turn is held from taking to delivering, which keeps the order. @return false at the end.
bool MQEvents::DeliverNext()
{
    const ListenerList::Turn turn(m_listeners);
    MQMessage message;
    if (!m_reader.NextToDeliver(turn, message)) return false;
    if (message.msgtype == XCFG_PARAM_CHANGED_EVENT)
        ProcessNumber(message, nullptr);
    else if (message.msgtype == XCFG_PARAM_STRING_CHANGED_EVENT)
        ProcessText(message, nullptr);
    else if (message.msgtype == XCFG_DISCONNECT_RESPONSE)
        RegisterAnew(turn);
    else
        Print("Unknown message type %d\n", static_cast<int>(message.msgtype));
    return true;
}

bool MQEvents::ProcessNumber(const MQMessage& message, ConfigEvent* event)
{
    if (message.info.connectionID != m_connection.connectionID) return false;
    const timeval time = TimeOf(message);
    {
        const CallbackScope scope(this);
        m_listeners.TellNumber(message.paramID, message.value, time);
    }
    if (!event) return true;
    event->paramID = message.paramID;
    if (ParamDescriptor* const descriptor = FindDescriptor(message.paramID))
        event->paramType = descriptor->GetParamType();
    event->value = message.value;
    event->time = time;
    return true;
}

bool MQEvents::ProcessText(const MQMessage& message, ConfigEvent* event)
{
    if (message.info.connectionID != m_connection.connectionID) return false;
    if (!message.HasStream())
        return Report("PosixMQClient::ProcessConfigStreamParamEvent - invalid streamLength\n");
    std::string text;
    message.ReadText(text);  // any other object counts as an empty text
    const timeval time = TimeOf(message);
    {
        const CallbackScope scope(this);
        m_listeners.TellText(message.paramID, text, time);
    }
    if (!event) return true;
    event->paramID = message.paramID;
    event->paramType = eCParam_StringValue;
    event->text = std::move(text);
    event->time = time;
    return true;
}

// --- waiting for events ---

/// The daemon reports an error in two fields; listeners read one, waits the other.
bool MQEvents::RegisterWait()
{
    auto request = ListenerRequest(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST);
    MQMessage answer;
    const Outcome outcome = m_connection.Exchange(request, answer);
    if (outcome != Outcome::kReceived) {
        PrintError("PosixMQClient::WaitForConfigEvent - mq_receive failed");
        return Report("PosixMQClient::WaitForConfigEvent - %s failed\n",
                      outcome == Outcome::kNotSent ? "mq_send" : "mq_receive");
    }
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return Report(
            "PosixMQClient::WaitForConfigEvent(): response message did not match response message info\n");
    if (answer.msgtype != XCFG_ADD_CONFIG_EVENT_LISTENER_RESPONSE)
        return Report("PosixMQClient::WaitForConfigEvent - response is not a event listener response\n");
    if (answer.error != 0) return Report("PosixMQClient::WaitForConfigEvent - error != 0\n");
    m_waitRegistered = true;
    return true;
}

/// @return false when none will come, after two lines unless the client was stopped.
bool MQEvents::AwaitEvent(MQReader::EventWait& wait)
{
    Outcome result;
    do {
        result = wait.Await();
    } while (result == Outcome::kTimedOut && m_connection.IsLinked());
    if (result == Outcome::kReceived) return true;
    if (result == Outcome::kStopped) return false;
    if (result == Outcome::kTimedOut) errno = EIDRM;
    PrintError("PosixMQClient::WaitForConfigEvent - mq_receive\n");
    Print("PosixMQClient::WaitForConfigEvent - mq_receive ERROR\n");
    m_connection.SetReachable(false);
    return false;
}

bool MQEvents::WaitForEvent(ConfigEvent& event)
{
    if (!m_waitRegistered && !RegisterWait()) return false;
    MQReader::EventWait wait(m_reader);
    while (AwaitEvent(wait)) {
        const ListenerList::Turn turn(m_listeners);
        MQMessage message;
        if (!m_reader.TakeEvent(turn, message)) continue;  // another thread was faster
        if (message.msgtype == XCFG_PARAM_CHANGED_EVENT) return ProcessNumber(message, &event);
        if (message.msgtype == XCFG_PARAM_STRING_CHANGED_EVENT) return ProcessText(message, &event);
        if (message.msgtype == XCFG_DISCONNECT_RESPONSE) {
            RegisterAnew(turn);
            continue;
        }
        Print("PosixMQClient::WaitForConfigEvent - Unknown message type %d\n",
              static_cast<int>(message.msgtype));
        return true;
    }
    return false;
}

}  // namespace vexa::config::access
