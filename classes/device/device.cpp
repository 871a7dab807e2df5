#include "device/device.h"

#include <algorithm>
#include <climits>

#include "device/format.h"
#include "device/worker.h"

namespace vexa {

namespace {

constexpr char kNoValue[] = "the device has no value for it";

Failure FailureOf(const LinkFailure& failure)
{
    return failure.kind == LinkFailure::Kind::kTimedOut ? Failure::kTimedOut : Failure::kNotConnected;
}

std::string NotConnected(const std::string& reason)
{
    return reason.empty() ? "not connected" : "not connected: " + reason;
}

std::string ReasonOf(const LinkFailure& failure)
{
    return failure.kind == LinkFailure::Kind::kTimedOut ? failure.reason : NotConnected(failure.reason);
}

/// The parameter of an operation. @return null, with the failure, when the operation is not possible.
template <class Result>
ParamDescriptor* Check(const DeviceWorker& worker, const Catalogue* catalogue, ParamDescriptor* descriptor,
                       const std::string& name, Result& result)
{
    const auto fail = [&](Failure failure, std::string reason) {
        result.failure = failure;
        result.reason = std::move(reason);
        return nullptr;
    };
    const DeviceStatus status = worker.mirror.Status();
    if (!catalogue || status.state != DeviceState::kInStep)
        return fail(Failure::kNotConnected, NotConnected(status.reason));
    if (!descriptor) return fail(Failure::kNoSuchParameter, "unknown parameter " + name);
    if (HoldsBytes(*descriptor) && !worker.Traits().carriesData)
        return fail(Failure::kNoValue, "this transport carries no data");
    return descriptor;
}

template <class Result>
ParamDescriptor* Check(const DeviceWorker& worker, const Catalogue* catalogue, eParam_t id, Result& result)
{
    char name[16];
    snprintf(name, sizeof name, "0x%08x", id);
    return Check(worker, catalogue, catalogue ? catalogue->Find(id) : nullptr, name, result);
}

template <class Result>
ParamDescriptor* Check(const DeviceWorker& worker, const Catalogue* catalogue, const std::string& name,
                       Result& result)
{
    return Check(worker, catalogue, catalogue ? catalogue->Find(name) : nullptr, "\"" + name + "\"", result);
}

/// Why a value is not sent. @return nothing when it can be.
std::optional<std::string> WhyNotSent(const DeviceWorker& worker, ParamDescriptor& descriptor,
                                      const Value& value)
{
    const auto* const text = std::get_if<std::string>(&value);
    if (HoldsText(descriptor) != (text != nullptr)) return text ? "it takes a number" : "it takes a text";
    if (text && text->size() > worker.Traits().longestText)
        return "longer than the " + std::to_string(worker.Traits().longestText) + " bytes that can be sent";
    if (text && !HoldsBytes(descriptor) && text->find('\0') != std::string::npos)
        return "a text has no zero bytes";
    return std::nullopt;
}

/// A Set between two Gets, and what they show.
class Setting {
  public:
    Setting(ParamDescriptor& descriptor, Value value) : m_descriptor(descriptor), m_value(std::move(value)) {}

    ParamDescriptor& Parameter() const { return m_descriptor; }
    LinkRequest Get() const { return GetRequest(m_descriptor); }
    LinkRequest Set() const
    {
        const bool isData = HoldsBytes(m_descriptor);
        return {isData ? LinkRequest::Kind::kSetData : LinkRequest::Kind::kSet, m_descriptor.GetParamID(),
                m_value};
    }
    SetResult Judge(const LinkReply& before, const LinkReply& set, const LinkReply& after) const;

  private:
    ParamDescriptor& m_descriptor;
    const Value m_value;
};

SetResult Setting::Judge(const LinkReply& before, const LinkReply& set, const LinkReply& after) const
{
    using Outcome = SetResult::Outcome;
    if (after.kind != LinkReply::Kind::kGiven)
        return {Outcome::kUnknown, Failure::kNoValue, std::nullopt, "sent, but the device does not show it"};
    SetResult result{Outcome::kStored, Failure::kNone, after.value, ""};
    if (after.value == m_value) return result;
    const bool isKept = before.kind == LinkReply::Kind::kGiven && before.value == after.value;
    const auto objection = Objection(m_descriptor, m_value);
    // A number out of its range is moved into it, perhaps to where it was before.
    const bool isMoved = objection && KindOf(m_descriptor) == std::string_view("int");
    const bool isRefused = set.kind == LinkReply::Kind::kRefused || (isKept && !isMoved);
    result.outcome = isRefused ? Outcome::kRefused : Outcome::kCorrected;
    result.reason = objection.value_or("the device does not accept it");
    return result;
}

/// A request that nobody answers, that of a text, may be carried out after the Get that followed it.
void ReadLateOnes(DeviceWorker& worker, const std::vector<Setting>& settings, std::vector<LinkReply>& replies)
{
    const size_t count = settings.size();
    for (size_t i = 0; i < count; ++i) {
        LinkReply& after = replies[2 * count + i];
        if (!HoldsText(settings[i].Parameter()) || after.value == settings[i].Set().value) continue;
        std::vector<LinkReply> again;
        LinkFailure failure;
        if (worker.Do({settings[i].Get()}, again, failure)) after = again.front();
    }
}

/// Sends them in their order and reads them back.
std::vector<SetResult> Carry(DeviceWorker& worker, const std::vector<Setting>& settings)
{
    std::vector<LinkRequest> requests;
    requests.reserve(3 * settings.size());
    for (const Setting& setting : settings) requests.push_back(setting.Get());
    for (const Setting& setting : settings) requests.push_back(setting.Set());
    for (const Setting& setting : settings) requests.push_back(setting.Get());
    std::vector<LinkReply> replies;
    LinkFailure failure;
    const Mirror::Moment asked = worker.mirror.Now();
    const bool isWhole = worker.Do(requests, replies, failure);
    if (isWhole && !worker.Traits().isOrdered) ReadLateOnes(worker, settings, replies);
    std::vector<SetResult> results;
    const size_t count = settings.size();
    for (size_t i = 0; i < count; ++i) {
        const LinkReply& after = replies[2 * count + i];
        if (isWhole || after.kind == LinkReply::Kind::kGiven)
            results.push_back(settings[i].Judge(replies[i], replies[count + i], after));
        else
            results.push_back(
                {SetResult::Outcome::kUnknown, FailureOf(failure), std::nullopt, ReasonOf(failure)});
        if (results.back().now)
            worker.mirror.NoteAnswer(settings[i].Parameter().GetParamID(), *results.back().now, asked);
    }
    return results;
}

}  // namespace

const char* NameOf(DeviceState state)
{
    switch (state) {
        case DeviceState::kConnecting:
            return "connecting";
        case DeviceState::kInStep:
            return "in step";
        case DeviceState::kLost:
            return "lost";
        case DeviceState::kRefused:
            return "refused";
        case DeviceState::kOtherModel:
            break;
    }
    return "other model";
}

std::string Change::Text() const
{
    ParamDescriptor* const descriptor = catalogue ? catalogue->Find(id) : nullptr;
    return descriptor ? Format(*descriptor, value) : "";
}

Device::Device(const std::string& address, DeviceOptions options)
    : m_worker(std::make_unique<DeviceWorker>(address, std::move(options)))
{
}

Device::~Device() = default;

DeviceStatus Device::Status() const
{
    return m_worker->mirror.Status();
}

bool Device::WaitUntilInStep(std::chrono::milliseconds timeout) const
{
    const auto limit = static_cast<unsigned int>(std::clamp<long long>(timeout.count(), 0, INT_MAX));
    return m_worker->CanConnect() && m_worker->mirror.WaitUntilInStep(Deadline(limit));
}

std::shared_ptr<const Catalogue> Device::Parameters() const
{
    return m_worker->mirror.Parameters();
}

size_t Device::LongestText() const
{
    return m_worker->Traits().longestText;
}

// --- reading ---

GetResult Device::Get(eParam_t id)
{
    return GetMany({id}).front();
}

GetResult Device::Get(const std::string& name)
{
    GetResult result;
    const auto catalogue = Parameters();
    ParamDescriptor* const descriptor = Check(*m_worker, catalogue.get(), name, result);
    return descriptor ? Get(descriptor->GetParamID()) : result;
}

std::vector<GetResult> Device::GetMany(const std::vector<eParam_t>& ids)
{
    std::vector<GetResult> results(ids.size());
    std::vector<LinkRequest> requests;
    std::vector<GetResult*> asked;
    const auto catalogue = Parameters();
    for (size_t i = 0; i < ids.size(); ++i) {
        ParamDescriptor* const descriptor = Check(*m_worker, catalogue.get(), ids[i], results[i]);
        if (!descriptor) continue;
        requests.push_back(GetRequest(*descriptor));
        asked.push_back(&results[i]);
    }
    if (requests.empty()) return results;
    std::vector<LinkReply> replies;
    LinkFailure failure;
    const bool isWhole = m_worker->Do(requests, replies, failure);
    for (size_t i = 0; i < requests.size(); ++i) {
        if (replies[i].kind == LinkReply::Kind::kGiven)
            asked[i]->value = std::move(replies[i].value);
        else if (isWhole || replies[i].kind == LinkReply::Kind::kRefused)
            *asked[i] = {std::nullopt, Failure::kNoValue, kNoValue};
        else
            *asked[i] = {std::nullopt, FailureOf(failure), ReasonOf(failure)};
    }
    return results;
}

GetResult Device::Kept(eParam_t id)
{
    GetResult result;
    result.value = m_worker->mirror.Kept(id);
    if (result.value) return result;
    const auto catalogue = Parameters();
    ParamDescriptor* const descriptor = Check(*m_worker, catalogue.get(), id, result);
    return descriptor ? Get(id) : result;
}

GetResult Device::Kept(const std::string& name)
{
    GetResult result;
    const auto catalogue = Parameters();
    ParamDescriptor* const descriptor = Check(*m_worker, catalogue.get(), name, result);
    return descriptor ? Kept(descriptor->GetParamID()) : result;
}

// --- writing ---

SetResult Device::Set(eParam_t id, const Value& value)
{
    SetResult result;
    const auto catalogue = Parameters();
    ParamDescriptor* const descriptor = Check(*m_worker, catalogue.get(), id, result);
    if (!descriptor) return result;
    if (auto why = WhyNotSent(*m_worker, *descriptor, value)) {
        result.reason = *std::move(why);
        return result;
    }
    return Carry(*m_worker, {Setting(*descriptor, value)}).front();
}

SetResult Device::Set(const std::string& name, const std::string& text)
{
    SetResult result;
    const auto catalogue = Parameters();
    ParamDescriptor* const descriptor = Check(*m_worker, catalogue.get(), name, result);
    if (!descriptor) return result;
    const std::optional<Value> value = Parse(*descriptor, text, result.reason);
    return value ? Set(descriptor->GetParamID(), *value) : result;
}

std::vector<SetResult> Device::SetMany(const std::vector<std::pair<eParam_t, Value>>& settings)
{
    std::vector<SetResult> results(settings.size());
    std::vector<Setting> accepted;
    const auto catalogue = Parameters();
    for (size_t i = 0; i < settings.size(); ++i) {
        const auto& [id, value] = settings[i];
        ParamDescriptor* const descriptor = Check(*m_worker, catalogue.get(), id, results[i]);
        if (!descriptor) continue;
        std::optional<std::string> why = WhyNotSent(*m_worker, *descriptor, value);
        if (!why) why = Objection(*descriptor, value);
        if (!why) accepted.emplace_back(*descriptor, value);
        results[i].reason = why.value_or("");
    }
    if (accepted.size() == settings.size()) return Carry(*m_worker, accepted);
    for (SetResult& result : results)
        if (result.reason.empty()) result.reason = "another value of the same request cannot be set";
    return results;
}

// --- following ---

Subscription Device::Watch(const std::vector<std::string>& patterns,
                           std::function<void(const Change&)> onChange, bool wantsInitial)
{
    const auto feed = std::make_shared<Feed>(patterns, wantsInitial);
    auto delivery = m_worker->Deliver([feed, onChange = std::move(onChange)] {
        const std::optional<Change> change = feed->Take();
        if (change) onChange(*change);
        return change.has_value();
    });
    m_worker->mirror.Subscribe(feed);
    return Subscription(std::move(delivery));
}

ChangeQueue Device::Changes(const std::vector<std::string>& patterns, bool wantsInitial)
{
    auto feed = std::make_shared<Feed>(patterns, wantsInitial);
    m_worker->mirror.Subscribe(feed);
    return ChangeQueue(std::move(feed));
}

Subscription Device::WatchStatus(std::function<void(const DeviceStatus&)> onStatus)
{
    return Subscription(m_worker->mirror.WatchStatus(std::move(onStatus)));
}

}  // namespace vexa
