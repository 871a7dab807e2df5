#include "device/worker.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "config/base/no_signals.h"
#include "device/format.h"

namespace vexa {

namespace {

constexpr std::chrono::milliseconds kShortestPause(50), kLongestPause(5000);

int NewEvent()
{
    return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

Failure FailureOf(const LinkFailure& failure)
{
    return failure.kind == LinkFailure::Kind::kTimedOut ? Failure::kTimedOut : Failure::kNotConnected;
}

std::string TextOf(const LinkReply& reply)
{
    const auto* const text = std::get_if<std::string>(&reply.value);
    return reply.kind == LinkReply::Kind::kGiven && text ? *text : "";
}

/// Whoever has the turn gives it back, whatever happens.
template <class Operation>
bool Guarded(LinkFailure& failure, const Operation& operation)
{
    try {
        return operation();
    } catch (const std::exception& error) {
        failure = {LinkFailure::Kind::kLost, error.what()};
        return false;
    }
}

std::string ModelText(const std::string& model)
{
    return model.empty() ? "a device without a model" : model;
}

}  // namespace

LinkRequest GetRequest(ParamDescriptor& descriptor)
{
    using Kind = LinkRequest::Kind;
    const Kind kind = HoldsBytes(descriptor)  ? Kind::kGetData
                      : HoldsText(descriptor) ? Kind::kGetText
                                              : Kind::kGetNumber;
    return {kind, descriptor.GetParamID()};
}

DeviceWorker::DeviceWorker(const std::string& address, DeviceOptions options)
    : m_options(std::move(options)),
      m_wake(NewEvent()),
      m_stop(NewEvent()),
      mirror(m_deliveries, m_wake.Get())
{
    std::string reason;
    m_address = DeviceAddress::Parse(address, reason);
    if (!m_address) {
        mirror.SetStatus({.state = DeviceState::kRefused,
                          .failure = Failure::kNotConnected,
                          .reason = "\"" + address + "\": " + reason});
        return;
    }
    m_traits = TraitsOf(m_address->transport);
    try {
        const NoSignals inherited;
        m_thread = std::thread([this] {
            pthread_setname_np(pthread_self(), "cfg-device");
            Run();
        });
    } catch (const std::system_error& error) {
        m_address.reset();
        mirror.SetStatus(
            {.state = DeviceState::kRefused, .reason = std::string("no thread: ") + error.what()});
    }
}

DeviceWorker::~DeviceWorker()
{
    m_isStopping = true;
    eventfd_write(m_stop.Get(), 1);
    eventfd_write(m_wake.Get(), 1);
    if (m_thread.joinable()) m_thread.join();
    m_deliveries.Stop();
}

void DeviceWorker::Run()
{
    while (!m_isStopping) {
        try {
            RunOnce();
        } catch (const std::exception& error) {
            Report({LinkFailure::Kind::kLost, error.what()});
        }
        if (!m_isStopping) Pause();
    }
}

/// From a connection to its loss.
void DeviceWorker::RunOnce()
{
    LinkFailure failure;
    const std::unique_ptr<Link> link = MakeLink(*m_address, mirror);
    if (Open(*link, failure)) {
        const auto began = std::chrono::steady_clock::now();
        m_stateWithoutConnection = DeviceState::kLost;
        const InUse use(*this, *link);
        mirror.SetStatus({.state = DeviceState::kInStep,
                          .model = m_model,
                          .software = m_software,
                          .isModelAssumed = m_isModelAssumed});
        Serve(*link, failure);
        // One that is lost again and again is not to be read again and again at full speed.
        if (std::chrono::steady_clock::now() - began > kLongestPause) m_pause = {};
    }
    if (!m_isStopping) Report(failure);
}

void DeviceWorker::Report(const LinkFailure& failure)
{
    DeviceState state = m_stateWithoutConnection;
    if (failure.kind == LinkFailure::Kind::kRefused && state == DeviceState::kConnecting)
        state = DeviceState::kRefused;
    if (mirror.Status().state != DeviceState::kOtherModel || failure.kind != LinkFailure::Kind::kRefused)
        mirror.SetStatus({.state = state, .failure = FailureOf(failure), .reason = failure.reason});
}

/// So that many clients of a device that comes back do not come all at once.
void DeviceWorker::Pause()
{
    m_pause = std::clamp(m_pause * 2, kShortestPause, kLongestPause);
    std::uniform_int_distribution<long long> part(m_pause.count() / 2, m_pause.count());
    WaitFor(m_stop.Get(), POLLIN, Deadline(static_cast<unsigned int>(part(m_random))), -1);
}

bool DeviceWorker::Open(Link& link, LinkFailure& failure)
{
    return link.Open(Timeout(), m_stop.Get(), failure) && FindModel(link, failure) && ReadAll(link, failure);
}

bool DeviceWorker::FindModel(Link& link, LinkFailure& failure)
{
    std::vector<LinkReply> replies;
    const std::vector<LinkRequest> requests{{LinkRequest::Kind::kGetNumber, eParamID_ProductID},
                                            {LinkRequest::Kind::kGetText, eParamID_SWVersion}};
    return link.Exchange(requests, replies, Timeout(), m_stop.Get(), failure) && TakeModel(replies, failure);
}

bool DeviceWorker::TakeModel(const std::vector<LinkReply>& replies, LinkFailure& failure)
{
    const auto number = std::get<unsigned int>(replies[0].value);
    std::optional<std::string> model = Catalogue::ModelOf(number);
    m_isModelAssumed = m_options.assumesModel && model.value_or("").empty();
    if (m_isModelAssumed) model = m_options.model;
    m_software = TextOf(replies[1]);
    const auto refuse = [&](std::string reason) {
        failure = {LinkFailure::Kind::kRefused, std::move(reason)};
        mirror.SetStatus({.state = DeviceState::kOtherModel,
                          .failure = Failure::kNotConnected,
                          .reason = failure.reason,
                          .model = model.value_or("")});
        return false;
    };
    if (!model)
        return refuse("its model, number " + std::to_string(number) + ", is not known to this version");
    if (!m_options.model.empty() && *model != m_options.model)
        return refuse("it is " + ModelText(*model) + ", not " + m_options.model);
    const auto before = mirror.Parameters();
    const auto catalogue = Catalogue::Of(*model);
    if (before && before != catalogue)
        mirror.SetStatus({.state = DeviceState::kOtherModel,
                          .failure = Failure::kNotConnected,
                          .reason = "it was " + ModelText(before->Model()) + " and is " + ModelText(*model),
                          .model = *model});
    m_model = *model;
    mirror.SetCatalogue(catalogue);
    return true;
}

bool DeviceWorker::ReadAll(Link& link, LinkFailure& failure)
{
    mirror.TakeMissing();
    std::vector<ParamDescriptor*> parameters;
    for (const auto& [id, descriptor] : mirror.Parameters()->All())
        if (m_traits.carriesData || !HoldsBytes(*descriptor)) parameters.push_back(descriptor);
    return Read(link, parameters, failure);
}

bool DeviceWorker::Read(Link& link, const std::vector<ParamDescriptor*>& parameters, LinkFailure& failure)
{
    std::vector<LinkRequest> requests;
    requests.reserve(parameters.size());
    for (ParamDescriptor* const descriptor : parameters) requests.push_back(GetRequest(*descriptor));
    std::vector<LinkReply> replies;
    const Mirror::Moment asked = mirror.Now();
    if (!link.Exchange(requests, replies, Timeout(), m_stop.Get(), failure)) return false;
    for (size_t i = 0; i < requests.size(); ++i)
        mirror.TakeAnswer(
            requests[i].id,
            replies[i].kind == LinkReply::Kind::kGiven ? std::optional(replies[i].value) : std::nullopt,
            asked);
    return true;
}

/// Until the link is lost. @return false then.
bool DeviceWorker::Serve(Link& link, LinkFailure& failure)
{
    Deadline probe(static_cast<unsigned int>(m_options.probeInterval.count()));
    bool isKept = true;
    while (isKept && !m_isStopping) {
        WaitFor(link.Descriptor(), POLLIN, probe, m_wake.Get());
        eventfd_t ignored;
        eventfd_read(m_wake.Get(), &ignored);
        isKept = Maintain(link, probe, failure);
    }
    return isKept;
}

bool DeviceWorker::Maintain(Link& link, Deadline& probe, LinkFailure& failure)
{
    const MutexLock hold(m_lock);
    AwaitTurn();
    if (m_broken) {
        failure = *m_broken;
        return false;
    }
    m_isTaken = true;
    bool isKept = false;
    {
        const MutexUnlock release(m_lock);
        isKept = Guarded(failure, [&] { return ReceiveAndProbe(link, probe, failure); });
    }
    m_isTaken = false;
    m_changed.NotifyAll();
    return isKept;
}

/// Receives, reads what may be old, and probes when it is time.
bool DeviceWorker::ReceiveAndProbe(Link& link, Deadline& probe, LinkFailure& failure)
{
    if (!link.Receive(failure) || (mirror.TakeMissing() && !ReadAll(link, failure))) return false;
    if (!probe.IsOver()) return true;
    const bool isThere = Probe(link, failure);
    probe = Deadline(static_cast<unsigned int>(m_options.probeInterval.count()));
    return isThere;
}

/// Each answer to somebody else's request wakes this thread, too. It stays out of the way while they follow one
/// another, without being told of each; changes are passed on all the same, by whoever reads.
void DeviceWorker::AwaitTurn()
{
    constexpr unsigned int kQuietMs = 2;
    constexpr std::chrono::milliseconds kQuiet(kQuietMs);
    while (!m_isStopping && !m_broken &&
           (m_isTaken || std::chrono::steady_clock::now() - m_lastJobs < kQuiet))
        m_quiet.Wait(m_lock, Deadline(kQuietMs));
    while (m_isTaken) AwaitChange(Deadline(Deadline::kNever));
}

void DeviceWorker::AwaitChange(const Deadline& deadline)
{
    ++m_waiting;
    m_changed.Wait(m_lock, deadline);
    --m_waiting;
}

void DeviceWorker::SetLink(Link* link)
{
    const MutexLock hold(m_lock);
    while (m_isTaken) AwaitChange(Deadline(Deadline::kNever));
    m_link = link;
    m_broken.reset();
}

/// A small exchange shows whether the device is still there. Where its changes cannot be relied on, they are read
/// again.
bool DeviceWorker::Probe(Link& link, LinkFailure& failure)
{
    const std::set<eParam_t> touched = mirror.TakeTouched();
    if (!link.HearsChanges()) return ReadAll(link, failure);
    const auto catalogue = mirror.Parameters();
    std::vector<ParamDescriptor*> parameters;
    if (ParamDescriptor* const state = catalogue->Find(eParamID_SystemState)) parameters.push_back(state);
    if (!m_traits.isOrdered)
        for (const eParam_t id : touched) parameters.push_back(catalogue->Find(id));
    return Read(link, parameters, failure);
}

/// Requests of one kind at a time where the device may carry them out in another order.
bool DeviceWorker::ExchangeInOrder(Link& link, const std::vector<LinkRequest>& requests,
                                   std::vector<LinkReply>& replies, const Deadline& deadline,
                                   LinkFailure& failure)
{
    if (m_traits.isOrdered) return link.Exchange(requests, replies, deadline, m_stop.Get(), failure);
    replies.clear();
    for (auto from = requests.begin(); from != requests.end();) {
        const auto to = std::find_if(from, requests.end(), [&](const LinkRequest& request) {
            return request.IsSet() != from->IsSet();
        });
        std::vector<LinkReply> part;
        const bool isWhole = link.Exchange({from, to}, part, deadline, m_stop.Get(), failure);
        replies.insert(replies.end(), part.begin(), part.end());
        if (!isWhole) {
            replies.resize(requests.size());
            return false;
        }
        from = to;
    }
    return true;
}

// --- jobs ---

bool DeviceWorker::Do(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                      LinkFailure& failure)
{
    const auto job = std::make_shared<Job>(Job{requests, {}, {}});
    const Deadline deadline = Timeout();
    {
        const MutexLock hold(m_lock);
        m_jobs.push_back(job);
        while (!job->isDone) {
            if (!m_isTaken)
                RunJobs();
            else if (!deadline.IsOver())
                AwaitChange(deadline);
            else if (std::erase(m_jobs, job) > 0)
                break;
            else
                AwaitChange(Deadline(Deadline::kNever));  // it is being carried out, which has a limit
        }
        replies = std::move(job->replies);
        failure = job->isDone ? job->failure : LinkFailure{LinkFailure::Kind::kTimedOut, "no answer in time"};
    }
    replies.resize(requests.size());
    return job->isWhole;
}

/// All that wait, together.
void DeviceWorker::RunJobs()
{
    const Jobs jobs = std::exchange(m_jobs, {});
    Link* const link = m_broken ? nullptr : m_link;
    m_isTaken = true;
    std::vector<LinkReply> replies;
    LinkFailure failure;
    bool isWhole = false;
    {
        const MutexUnlock release(m_lock);
        if (link)
            isWhole = Guarded(failure, [&] { return RunOn(*link, jobs, replies, failure); });
        else
            failure = {LinkFailure::Kind::kLost, mirror.Status().reason};
    }
    m_isTaken = false;
    m_lastJobs = std::chrono::steady_clock::now();
    Finish(jobs, replies, isWhole, failure);
    if (link && !isWhole) {
        m_broken = failure;
        eventfd_write(m_wake.Get(), 1);
    }
    if (m_waiting > 0) m_changed.NotifyAll();
}

bool DeviceWorker::RunOn(Link& link, const Jobs& jobs, std::vector<LinkReply>& replies, LinkFailure& failure)
{
    if (jobs.size() == 1) return ExchangeInOrder(link, jobs.front()->requests, replies, Timeout(), failure);
    std::vector<LinkRequest> all;
    for (const auto& job : jobs) all.insert(all.end(), job->requests.begin(), job->requests.end());
    return ExchangeInOrder(link, all, replies, Timeout(), failure);
}

void DeviceWorker::Finish(const Jobs& jobs, const std::vector<LinkReply>& replies, bool isWhole,
                          const LinkFailure& failure)
{
    auto next = replies.begin();
    for (const auto& job : jobs) {
        const auto count =
            std::min<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(job->requests.size()), replies.end() - next);
        job->replies.assign(next, next + count);
        job->failure = failure;
        job->isWhole = isWhole;
        job->isDone = true;
        next += count;
    }
}

}  // namespace vexa
