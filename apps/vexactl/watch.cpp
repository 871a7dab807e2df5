#include "vexactl/watch.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "config/base/deadline.h"
#include "vexactl/times.h"

using vexa::DeviceState;
using vexa::DeviceStatus;

namespace {

vexa::Deadline DeadlineOf(std::optional<double> seconds)
{
    return vexa::Deadline(seconds ? MillisecondsOf(*seconds) : vexa::Deadline::kNever);
}

/// Waits for a change, news of the connection, a signal, the end of the output or the time.
void AwaitNews(const Session& session, int changes, int milliseconds)
{
    pollfd events[] = {{Interrupts::Instance().Fd(), POLLIN, 0},
                       {changes, POLLIN, 0},
                       {session.NewsFd(), POLLIN, 0},
                       {STDOUT_FILENO, 0, 0}};
    poll(events, 4, milliseconds);
    Interrupts::Instance().Check();
    if (events[3].revents & POLLERR) throw OutputClosed{};
}

/// Tells of a lost connection and of its return. Throws ConnectionError when that is not to be followed.
class Followed {
  public:
    Followed(Session& session, bool follows) : m_session(session), m_follows(follows) {}

    void Check()
    {
        while (const auto status = m_session.TakeNews()) {
            if (status->state == DeviceState::kConnecting) continue;  // from before it was in step
            if (status->state == DeviceState::kInStep)
                Again(*status);
            else
                Lost(*status);
        }
    }

  private:
    void Lost(const DeviceStatus& status)
    {
        const bool isOther = status.state == DeviceState::kOtherModel;
        if (!m_follows && !isOther) m_session.RequireConnection(status.failure, status.reason);
        if (!m_follows) throw ConnectionError(m_session.Place() + ": " + status.reason);
        if (!m_isLost) Tell("lost the connection to " + m_session.Place() + ": " + status.reason, status);
        if (isOther) Tell(m_session.Place() + ": " + status.reason, status);
        m_isLost = true;
    }
    void Again(const DeviceStatus& status)
    {
        if (m_isLost) Tell("in step with " + m_session.Place() + " again", status);
        m_isLost = false;
    }
    void Tell(const std::string& message, const DeviceStatus& status)
    {
        m_session.Note(message, {{"state", vexa::NameOf(status.state)}});
    }

    Session& m_session;
    const bool m_follows;
    bool m_isLost = false;
};

const char* KindText(vexa::Change::Kind kind)
{
    switch (kind) {
        case vexa::Change::Kind::kEvent:
            return "event";
        case vexa::Change::Kind::kDifference:
            return "difference";
        case vexa::Change::Kind::kInitial:
            break;
    }
    return "initial";
}

/// The names of all parameters that are to be watched, or nothing after a message.
std::optional<std::vector<std::string>> NamesOf(Session& session, const std::vector<std::string>& patterns)
{
    std::vector<std::string> names;
    for (const std::string& pattern : patterns) {
        if (pattern.find_first_of("*?[") != std::string::npos) {
            names.push_back(pattern);
            continue;
        }
        const auto parameter = session.Find(pattern);
        if (!parameter) return std::nullopt;
        names.push_back(parameter->Name());
    }
    return names;
}

/// "=", "!=", "<" or ">" with what stands before and behind.
struct Condition {
    std::string name, relation, typed;
};

std::optional<Condition> ConditionOf(const std::string& text)
{
    const size_t at = text.find_first_of("!=<>");
    if (at == std::string::npos || at == 0) return std::nullopt;
    const size_t length = text[at] == '!' ? 2 : 1;
    if (length == 2 && text.substr(at, 2) != "!=") return std::nullopt;
    return Condition{text.substr(0, at), text.substr(at, length), text.substr(at + length)};
}

bool IsLess(const Parameter& parameter, const Value& a, const Value& b)
{
    const unsigned int left = std::get<unsigned int>(a), right = std::get<unsigned int>(b);
    if (parameter.Descriptor().GetParamType() == eCParam_Signed)
        return static_cast<int>(left) < static_cast<int>(right);
    return left < right;
}

bool Holds(const Parameter& parameter, const std::string& relation, const Value& value, const Value& wanted)
{
    if (relation == "=") return value == wanted;
    if (relation == "!=") return value != wanted;
    return relation == "<" ? IsLess(parameter, value, wanted) : IsLess(parameter, wanted, value);
}

/// Until the parameter has the value. @return false when the time was over before.
bool Await(Session& session, vexa::Device& device, const Parameter& parameter, const Condition& condition,
           const Value& wanted, const vexa::Deadline& deadline)
{
    constexpr int kAskAgainMs = 1000;  // for what changes without telling
    const bool isVolatile = parameter.Descriptor().HasClassName("volatile");
    vexa::ChangeQueue changes = device.Changes({parameter.Name()}, false);
    Followed followed(session, false);
    while (true) {
        const vexa::GetResult now = device.Kept(parameter.Id());
        session.RequireConnection(now.failure, now.reason);
        if (now && Holds(parameter, condition.relation, *now.value, wanted)) {
            session.PrintValue(parameter, now.value, parameter.Name() + " = " + parameter.Text(*now.value));
            return true;
        }
        if (deadline.IsOver()) return false;
        const int left = deadline.PollTimeout();
        const bool asksFirst = isVolatile && (left == -1 || left > kAskAgainMs);
        AwaitNews(session, changes.Descriptor(), asksFirst ? kAskAgainMs : left);
        while (changes.Next(std::chrono::milliseconds(0))) continue;
        followed.Check();
    }
}

ExitStatus WatchUntilDone(Session& session, ChangePrinter& printer, const WatchOptions& options)
{
    const vexa::Deadline deadline = DeadlineOf(options.seconds);
    Followed followed(session, options.follow);
    unsigned int told = 0;
    const auto isDone = [&] { return options.changes && told >= *options.changes; };
    while (true) {
        const unsigned int left = options.changes ? *options.changes - told : UINT_MAX;
        told += printer.Print(left);
        if (isDone()) return ExitStatus::kDone;
        followed.Check();
        if (deadline.IsOver()) break;
        AwaitNews(session, printer.Descriptor(), deadline.PollTimeout());
    }
    if (!options.changes) return ExitStatus::kDone;
    return session.Fail(ExitStatus::kTimedOut, "heard " + std::to_string(told) + " of " +
                                                   std::to_string(*options.changes) + " changes in time");
}

}  // namespace

unsigned int ChangePrinter::Print(unsigned int atMost)
{
    unsigned int printed = 0;
    while (printed < atMost) {
        const auto change = m_changes.Next(std::chrono::milliseconds(0));
        if (!change) break;
        if (change->skipped > 0)
            m_session.Note(std::to_string(change->skipped) + (change->skipped == 1 ? " change" : " changes") +
                               " skipped",
                           {{"skipped", change->skipped}});
        const Parameter parameter(change->catalogue->Find(change->id));
        const std::string time = TimeText(change->time);
        const bool isLate = change->kind == vexa::Change::Kind::kDifference;
        m_session.PrintChange(parameter, change->value,
                              time + "  " + parameter.Name() + " = " + parameter.Text(change->value) +
                                  (isLate ? "  (changed meanwhile)" : ""),
                              {{"time", time},
                               {"clock", change->isDevicesTime ? "device" : "receiver"},
                               {"kind", KindText(change->kind)}},
                              time, m_format);
        if (change->kind != vexa::Change::Kind::kInitial) ++printed;
    }
    return printed;
}

BackgroundWatch::BackgroundWatch(Session& session, vexa::Device& device,
                                 const std::vector<std::string>& names)
    : m_printer(session, device, names, false),
      m_changes(m_printer.Descriptor()),
      m_end(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_thread([this] { Run(); })
{
}

BackgroundWatch::~BackgroundWatch()
{
    eventfd_write(m_end, 1);
    m_thread.join();
    close(m_end);
}

void BackgroundWatch::Run()
{
    pthread_setname_np(pthread_self(), "vexactl-watch");
    pollfd events[] = {{m_changes, POLLIN, 0}, {m_end, POLLIN, 0}};
    while (events[1].revents == 0) {
        poll(events, 2, -1);
        Flush();
    }
}

void BackgroundWatch::Flush()
{
    const vexa::MutexLock hold(m_lock);
    m_printer.Print(UINT_MAX);
}

ExitStatus Watch(Session& session, const std::vector<std::string>& names, const WatchOptions& options,
                 bool inBackground)
{
    vexa::Device& device = options.alarms ? *session.ConnectForData() : *session.Connect();
    const auto known = NamesOf(session, names);
    if (!known) return ExitStatus::kUnknownParameter;
    if (inBackground && !options.IsLimited()) {
        session.StartWatch(*known, options.alarms);
        return ExitStatus::kDone;
    }
    try {
        ChangePrinter printer(session, device, *known, options.initial);
        return WatchUntilDone(session, printer, options);
    } catch (const Interrupted&) {  // as a watch usually ends
        return ExitStatus::kDone;
    }
}

ExitStatus Wait(Session& session, const std::string& text, std::optional<double> seconds)
{
    const auto condition = ConditionOf(text);
    if (!condition)
        return session.Fail(ExitStatus::kUsage, Quoted(text) +
                                                    " is no condition, as FanSpeed=70, FanSpeed<70, "
                                                    "FanSpeed>70 or FanSpeed!=70");
    const vexa::Deadline deadline = DeadlineOf(seconds);
    vexa::Device& device = *session.Connect();
    const auto parameter = session.Find(condition->name);
    if (!parameter) return ExitStatus::kUnknownParameter;
    std::string reason;
    const auto wanted = vexa::Parse(parameter->Descriptor(), condition->typed, reason);
    if (!wanted) return session.Fail(ExitStatus::kUsage, parameter->Name() + ": " + reason);
    const bool orders = condition->relation == "<" || condition->relation == ">";
    if (orders && vexa::HoldsText(parameter->Descriptor()))
        return session.Fail(ExitStatus::kUsage, parameter->Name() + " is a text: it takes = and !=");
    if (Await(session, device, *parameter, *condition, *wanted, deadline)) return ExitStatus::kDone;
    const vexa::GetResult now = device.Kept(parameter->Id());
    return session.Fail(ExitStatus::kTimedOut, parameter->Name() + " is " +
                                                   (now ? parameter->Text(*now.value) : "not known") +
                                                   " after the time to wait");
}
