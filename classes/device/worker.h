/// DeviceWorker: the thread that keeps a Device in step with its device, and the requests that it carries out.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "config/base/mutex.h"
#include "device/address.h"
#include "device/deliveries.h"
#include "device/device.h"
#include "device/link.h"
#include "device/mirror.h"
#include "device/records.h"

namespace vexa {

/// Requests are carried out by the thread that asks, for all that wait at that moment: so one that asks alone
/// needs no other thread, and many share a round trip. Thread: any.
class DeviceWorker {
  public:
    DeviceWorker(const std::string& address, DeviceOptions options);
    ~DeviceWorker();
    DeviceWorker(const DeviceWorker&) = delete;
    DeviceWorker& operator=(const DeviceWorker&) = delete;

    /// Carries requests out, in their order. @return false when there is no connection, or not all replies came
    /// in time.
    bool Do(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies, LinkFailure& failure)
        VEXA_EXCLUDES(m_lock);
    bool CanConnect() const { return m_address.has_value(); }
    const LinkTraits& Traits() const { return m_traits; }
    std::shared_ptr<void> Deliver(Deliveries::Step step) { return m_deliveries.Add(std::move(step)); }

  private:
    struct Job {
        const std::vector<LinkRequest>& requests;  // of the thread that waits
        std::vector<LinkReply> replies;
        LinkFailure failure;
        bool isDone = false, isWhole = false;
    };
    using Jobs = std::deque<std::shared_ptr<Job>>;

    /// Lets jobs use a link, for the life of a scope.
    class InUse {
      public:
        InUse(DeviceWorker& worker, Link& link) : m_worker(worker) { m_worker.SetLink(&link); }
        ~InUse() { m_worker.SetLink(nullptr); }
        InUse(const InUse&) = delete;
        InUse& operator=(const InUse&) = delete;

      private:
        DeviceWorker& m_worker;
    };

    void Run();
    void RunOnce();
    void Pause();
    void Report(const LinkFailure& failure);
    bool Open(Link& link, LinkFailure& failure);
    bool FindModel(Link& link, LinkFailure& failure);
    bool TakeModel(const std::vector<LinkReply>& replies, LinkFailure& failure);
    bool ReadAll(Link& link, LinkFailure& failure);
    bool Read(Link& link, const std::vector<ParamDescriptor*>& parameters, LinkFailure& failure);
    bool Serve(Link& link, LinkFailure& failure);
    bool Probe(Link& link, LinkFailure& failure);
    bool ExchangeInOrder(Link& link, const std::vector<LinkRequest>& requests,
                         std::vector<LinkReply>& replies, const Deadline& deadline, LinkFailure& failure);
    bool Maintain(Link& link, Deadline& probe, LinkFailure& failure) VEXA_EXCLUDES(m_lock);
    bool ReceiveAndProbe(Link& link, Deadline& probe, LinkFailure& failure);
    void SetLink(Link* link) VEXA_EXCLUDES(m_lock);
    void AwaitTurn() VEXA_REQUIRES(m_lock);
    void AwaitChange(const Deadline& deadline) VEXA_REQUIRES(m_lock);
    void RunJobs() VEXA_REQUIRES(m_lock);
    bool RunOn(Link& link, const Jobs& jobs, std::vector<LinkReply>& replies, LinkFailure& failure);
    void Finish(const Jobs& jobs, const std::vector<LinkReply>& replies, bool isWhole,
                const LinkFailure& failure) VEXA_REQUIRES(m_lock);
    Deadline Timeout() const { return Deadline(static_cast<unsigned int>(m_options.timeout.count())); }

    const DeviceOptions m_options;
    std::optional<DeviceAddress> m_address;
    LinkTraits m_traits{};
    const SocketFd m_wake, m_stop;  // eventfds: a job or a gap; the end
    std::atomic<bool> m_isStopping = false;
    Deliveries m_deliveries;

  public:
    Mirror mirror;

  private:
    std::minstd_rand m_random{std::random_device{}()};
    std::chrono::milliseconds m_pause{};  // before the next attempt
    DeviceState m_stateWithoutConnection = DeviceState::kConnecting;
    std::string m_model, m_software;
    bool m_isModelAssumed = false;
    Mutex m_lock;
    CondVar m_changed, m_quiet;  // the latter only by time
    Jobs m_jobs VEXA_GUARDED_BY(m_lock);
    Link* m_link VEXA_GUARDED_BY(m_lock) = nullptr;      // while in step; used by whose turn it is
    unsigned int m_waiting VEXA_GUARDED_BY(m_lock) = 0;  // threads that wait for a change
    bool m_isTaken VEXA_GUARDED_BY(m_lock) = false;      // it is somebody's turn
    std::chrono::steady_clock::time_point m_lastJobs VEXA_GUARDED_BY(m_lock);
    std::optional<LinkFailure> m_broken VEXA_GUARDED_BY(m_lock);  // found by a job
    std::thread m_thread;
};

/// What asks for the value of a parameter.
LinkRequest GetRequest(ParamDescriptor& descriptor);

}  // namespace vexa
