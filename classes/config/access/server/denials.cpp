#include "config/access/server/denials.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <utility>

#include "config/access/protocol/message_types.h"
#include "config/base/harmless.h"
#include "config/base/log.h"
#include "config/base/mutex.h"
#include "config/base/no_destructor.h"
#include "config/config.h"

namespace vexa::corvalis::config::access {

namespace {

/// Peers and requests that are listed. Peers have a list of their own: addresses can be forged, and however many there
/// are, the requests that were denied stay.
constexpr size_t kListedPeers = 64, kListedRequests = 256;
/// Entries of one address in a minute; what comes on top is one more, so that nobody pushes out those of others.
constexpr std::ptrdiff_t kRequestsOfAddress = 16;
constexpr size_t kLongestValue = 100;  // bytes
constexpr time_t kSeconds = 60;        // in which the same is one entry
/// Peers that the log names in a minute: who forges addresses must not fill it.
constexpr unsigned int kPeerLines = 20;

struct Entry {
    Denial denial;
    std::string address;
};

struct Known {
    Mutex lock;
    std::deque<Entry> peers VEXA_GUARDED_BY(lock), requests VEXA_GUARDED_BY(lock);
    time_t minute VEXA_GUARDED_BY(lock) = 0;  // that the lines are of
    unsigned int lines VEXA_GUARDED_BY(lock) = 0;
    std::function<void(const Denial&)> watcher VEXA_GUARDED_BY(lock);
    std::atomic<uint64_t> count = 0;

    bool Add(std::deque<Entry>& list, size_t room, Entry entry) VEXA_REQUIRES(lock);
    void AddRequest(Entry entry) VEXA_REQUIRES(lock);
    bool MayPrint(time_t now) VEXA_REQUIRES(lock);
};

Known& AllDenials()
{
    static NoDestructor<Known> known;  // connections outlive main
    return *known;
}

/// Whether an entry is of the same address, and of the minute before the other one.
bool IsOfTheMinute(const Entry& entry, const Entry& later)
{
    const time_t age = later.denial.time.tv_sec - entry.denial.time.tv_sec;
    return entry.address == later.address && age >= 0 && age < kSeconds;
}

bool IsSame(const Entry& entry, const Entry& later)
{
    return IsOfTheMinute(entry, later) && entry.denial.param == later.denial.param &&
           entry.denial.asked == later.denial.asked && entry.denial.configID == later.denial.configID;
}

/// @return whether it is a new entry.
bool Known::Add(std::deque<Entry>& list, size_t room, Entry entry)
{
    const auto same =
        std::find_if(list.rbegin(), list.rend(), [&](const Entry& other) { return IsSame(other, entry); });
    if (same != list.rend()) {
        ++same->denial.times;
        return false;
    }
    if (list.size() >= room) list.pop_front();
    list.push_back(std::move(entry));
    if (watcher) watcher(list.back().denial);
    return true;
}

void Known::AddRequest(Entry entry)
{
    const auto isOfTheMinute = [&](const Entry& other) { return IsOfTheMinute(other, entry); };
    const auto isSame = [&](const Entry& other) { return IsSame(other, entry); };
    if (std::ranges::count_if(requests, isOfTheMinute) >= kRequestsOfAddress &&
        std::ranges::none_of(requests, isSame)) {
        entry.denial.asked = "further requests";
        entry.denial.configID = 0;
        entry.denial.param = {};
        entry.denial.value.clear();
    }
    Add(requests, kListedRequests, std::move(entry));
}

bool Known::MayPrint(time_t now)
{
    if (now / kSeconds != minute) lines = 0;
    minute = now / kSeconds;
    return ++lines <= kPeerLines;
}

Right RightFor(Config& config, eParam_t id, bool sets)
{
    if (!sets) return IsPassword(config, id) ? Right::kAdmin : Right::kRead;
    return IsProtected(config, id) ? Right::kAdmin : Right::kWrite;
}

std::string ValueText(Config& config, eParam_t id, const std::string& value)
{
    if (value.empty()) return "";
    if (IsPassword(config, id)) return "********";
    return Harmless(value.size() <= kLongestValue ? value : value.substr(0, kLongestValue) + "...");
}

timeval Now()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

}  // namespace

void DenyPeer(Transport transport, const PeerAddress& peer)
{
    Count(transport, Counter::kDenied);
    Known& known = AllDenials();
    ++known.count;
    Denial denial;
    denial.time = Now();
    denial.asked = "connect";
    denial.who = std::string(NameOf(transport)) + " " + peer.Text();
    denial.why = "no rule lets it in";
    const time_t now = denial.time.tv_sec;
    const MutexLock hold(known.lock);
    if (!known.Add(known.peers, kListedPeers, {std::move(denial), peer.Site().Text()}) ||
        !known.MayPrint(now))
        return;
    Print("mainstay: refused %s: no rule lets it in; --allow %s=read would\n", peer.Text().c_str(),
          peer.Text().c_str());
}

void DenyRequest(const DeniedRequest& request, Config& config, eParam_t id, const std::string& value,
                 Traffic* client)
{
    Count(request.transport, Counter::kDenied);
    if (client) client->CountDenied();
    Known& known = AllDenials();
    ++known.count;
    const char* const needed = NameOf(RightFor(config, id, IsSetRequest(request.type)));
    Denial denial;
    denial.time = Now();
    denial.asked = RequestName(request.type);
    denial.configID = config.GetConfigID();
    if (config.GetParamDescriptor(id)) denial.param = id;  // unknown ones are all alike
    denial.value = ValueText(config, id, value);
    denial.who = request.who;
    denial.why = std::string("its right is ") + NameOf(request.right) + ", and this takes " + needed;
    const MutexLock hold(known.lock);
    known.AddRequest({std::move(denial), request.address});
}

std::vector<Denial> Denials()
{
    Known& known = AllDenials();
    std::vector<Denial> all;
    {
        const MutexLock hold(known.lock);
        for (const auto* const list : {&known.peers, &known.requests})
            for (const Entry& entry : *list) all.push_back(entry.denial);
    }
    std::ranges::stable_sort(
        all, {}, [](const Denial& denial) { return std::pair(denial.time.tv_sec, denial.time.tv_usec); });
    return all;
}

uint64_t DenialCount()
{
    return AllDenials().count;
}

void WatchDenials(std::function<void(const Denial&)> watcher)
{
    Known& known = AllDenials();
    const MutexLock hold(known.lock);
    known.watcher = std::move(watcher);
}

}  // namespace vexa::corvalis::config::access
