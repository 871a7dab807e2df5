#include "vexactl/rollback.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "vexactl/times.h"
#include "vexactl/words.h"

namespace {

/// A line of standard input, by single characters: what follows is for the next command.
/// @return nothing when the time is over first. Throws Interrupted.
std::optional<std::string> ReadAnswer(const vexa::Deadline& deadline)
{
    std::string line;
    for (;;) {
        Interrupts::Instance().Check();
        pollfd inputs[] = {{STDIN_FILENO, POLLIN, 0}, {Interrupts::Instance().Fd(), POLLIN, 0}};
        if (poll(inputs, 2, deadline.PollTimeout()) == 0) return std::nullopt;
        if (inputs[0].revents == 0) continue;
        char c = '\n';
        if (read(STDIN_FILENO, &c, 1) <= 0 || c == '\n') return line;
        line += c;
    }
}

std::string ConfirmCommand(const Session& session)
{
    return "vexactl " + (session.control.empty() ? "" : "--control " + QuotedWord(session.control) + " ") +
           "confirm";
}

/// Whether the device answers now, or again before the time is over.
bool Answers(vexa::Device& device, const vexa::Deadline& deadline)
{
    while (AwaitDevice(device, deadline, true)) {
        if (device.Get(eParamID_ProductID)) return true;
        if (deadline.IsOver()) return false;
    }
    return false;
}

}  // namespace

Rollback::Rollback(Session& session, vexa::Device& device, const std::optional<double>& seconds)
    : m_session(session), m_device(device), m_seconds(seconds.value_or(0)), m_daemon(session)
{
}

void Rollback::Start(const ValueChanges& changes)
{
    // A signal is found when the request ends that it comes into: then the old values are put back.
    Interrupts::Instance().SetStop([] {});
    m_end = vexa::Deadline(MillisecondsOf(m_seconds));  // before that of the daemon
    if (m_seconds > 0) m_daemon.Start(m_device, changes, m_seconds);
    m_changes = &changes;
}

void Rollback::Confirm()
{
    if (m_daemon.Number() != 0) m_daemon.Release();
    m_changes = nullptr;
}

void Rollback::LeaveToDaemon()
{
    m_daemon.Leave();
    m_changes = nullptr;
}

bool Rollback::IsConfirmedElsewhere()
{
    const bool isReachable = m_device.Status().state == vexa::DeviceState::kInStep;
    if (m_daemon.Number() == 0 || !isReachable || m_daemon.Release()) return false;
    m_changes = nullptr;
    return true;
}

void Rollback::Release()
try {
    if (m_daemon.Number() != 0) m_daemon.Release();
} catch (const std::exception&) {  // it is gone, and what it held with it
}

std::vector<const ValueChange*> Rollback::Differing() const
{
    std::vector<eParam_t> ids;
    for (const ValueChange& change : *m_changes) ids.push_back(change.parameter.Id());
    const auto results = m_device.GetMany(ids);
    std::vector<const ValueChange*> differing;
    for (size_t i = ids.size(); i-- > 0;) {
        const ValueChange& change = (*m_changes)[i];
        if (results[i] ? *results[i].value != change.from : change.isSent) differing.push_back(&change);
    }
    return differing;
}

bool Rollback::PutBack(const std::vector<const ValueChange*>& differing, std::string& reason)
{
    for (const ValueChange* const change : differing) {
        const vexa::SetResult result = m_device.Set(change->parameter.Id(), change->from);
        if (!result) reason = result.reason;
        if (result.failure != vexa::Failure::kNone) return false;
    }
    return true;
}

void Rollback::Undo()
{
    constexpr int kMostTimes = 3;  // one value may keep another from coming back before it
    if (!m_changes) return;
    const double seconds = m_daemon.Number() != 0 ? 0 : m_seconds;
    const vexa::Deadline limit(MillisecondsOf(std::max(seconds, m_session.timeout)));
    std::vector<const ValueChange*> first, left;
    std::string reason;
    for (int times = 0; times < kMostTimes && !limit.IsOver() && AwaitDevice(m_device, limit, false);) {
        left = Differing();
        if (left.empty()) break;
        if (first.size() < left.size()) first = left;
        if (PutBack(left, reason))
            ++times;
        else
            std::this_thread::sleep_for(kUntilNoticed);
    }
    const vexa::DeviceStatus status = m_device.Status();
    if (status.state != vexa::DeviceState::kInStep) reason = "the device cannot be reached: " + status.reason;
    left = Differing();
    if (left.empty()) {
        Release();
    } else if (m_daemon.Number() != 0 && m_daemon.PutBackNow()) {
        m_session.Note("the daemon puts the old values back");
        return LeaveToDaemon();
    }
    Tell(first, left, reason);
}

void Rollback::Tell(const std::vector<const ValueChange*>& first, const std::vector<const ValueChange*>& left,
                    const std::string& reason)
{
    m_changes = nullptr;  // the tool may end while it prints
    for (const ValueChange* const change : first)
        if (change->Differs() && std::ranges::find(left, change) == left.end())
            PrintChanged(m_session, change->parameter, change->to, change->from, "put back");
    for (const ValueChange* const change : left)
        m_session.Fail(ExitStatus::kRefused,
                       change->parameter.Name() + " could not be put back to " +
                           change->parameter.Text(change->from) + ": " + reason,
                       {{"param", change->parameter.Name()},
                        {"result", "not put back"},
                        {"to", ValueJson(change->parameter, change->from)},
                        {"reason", reason}});
}

ExitStatus AskWhetherToKeep(Session& session, vexa::Device& device, Rollback& rollback)
{
    const int seconds = (rollback.End().PollTimeout() + 999) / 1000;
    if (const unsigned int number = rollback.Daemon().Number()) {
        session.Note("Kept in " + std::to_string(seconds) + " s only if you run: " + ConfirmCommand(session),
                     {{"hold", number}, {"seconds", seconds}});
        if (!isatty(STDIN_FILENO)) {
            rollback.LeaveToDaemon();
            return ExitStatus::kDone;
        }
    }
    session.Note("Keep the changes? [y/N], " + std::to_string(seconds) + " s", {{"seconds", seconds}});
    const auto answer = ReadAnswer(rollback.End());
    std::string why = answer ? "not confirmed" : "not confirmed in time";
    if (!answer && rollback.IsConfirmedElsewhere()) {
        session.Note("confirmed by somebody else");
        return ExitStatus::kDone;
    }
    if (answer && IsYes(*answer)) {
        if (Answers(device, rollback.End())) {
            rollback.Confirm();
            return ExitStatus::kDone;
        }
        why = "the connection did not come back in time";
    }
    session.Fail(ExitStatus::kRefused, why + "; the old values are put back");
    rollback.Undo();
    return ExitStatus::kRefused;
}
