#include "vexactl/changes.h"

#include <algorithm>
#include <map>
#include <thread>

#include "vexactl/rollback.h"

namespace {

using Outcome = vexa::SetResult::Outcome;

// --- writing ---

ExitStatus StatusOf(vexa::Failure failure, ExitStatus otherwise)
{
    if (failure == vexa::Failure::kTimedOut) return ExitStatus::kTimedOut;
    return failure == vexa::Failure::kNotConnected ? ExitStatus::kCannotConnect : otherwise;
}

bool IsLost(const Progress& progress)
{
    return progress.status == ExitStatus::kTimedOut || progress.status == ExitStatus::kCannotConnect;
}

Progress Judged(const ValueChange& change, const vexa::SetResult& result)
{
    const std::string name = change.parameter.Name(), wanted = change.parameter.Text(change.to);
    switch (result.outcome) {
        case Outcome::kStored:
            return {};
        case Outcome::kCorrected:
            return {ExitStatus::kRefused, name,
                    "the device takes " + change.parameter.Text(*result.now) + " instead of " + wanted};
        case Outcome::kUnknown:
            return {StatusOf(result.failure, ExitStatus::kFalse), name, wanted + ": " + result.reason};
        case Outcome::kRefused:
        case Outcome::kNotSent:
            break;
    }
    return {StatusOf(result.failure, ExitStatus::kRefused), name, wanted + " refused: " + result.reason};
}

Progress WriteEach(vexa::Device& device, const std::vector<ValueChange*>& changes)
{
    for (ValueChange* const change : changes) {
        Interrupts::Instance().Check();
        change->isSent = true;
        Progress progress = Judged(*change, device.Set(change->parameter.Id(), change->to));
        if (progress.status != ExitStatus::kDone) return progress;
    }
    return {};
}

/// @param left  those that do not have their new values.
Progress ReadBack(vexa::Device& device, ValueChanges& changes, std::vector<ValueChange*>& left)
{
    std::vector<eParam_t> ids;
    for (const ValueChange& change : changes) ids.push_back(change.parameter.Id());
    const auto results = device.GetMany(ids);
    left.clear();
    for (size_t i = 0; i < changes.size(); ++i) {
        if (!results[i])
            return {StatusOf(results[i].failure, ExitStatus::kFalse), changes[i].parameter.Name(),
                    results[i].reason};
        if (*results[i].value != changes[i].to) left.push_back(&changes[i]);
    }
    return {};
}

bool ComesBack(vexa::Device& device, const vexa::Deadline& patience)
{
    if (patience.IsOver()) return false;
    std::this_thread::sleep_for(kUntilNoticed);
    return AwaitDevice(device, patience, true);
}

}  // namespace

ValueChanges InOrder(const ValueChanges& changes)
{
    std::map<eParam_t, ValueChange> byId;
    for (const ValueChange& change : changes) byId.emplace(change.parameter.Id(), change);
    std::vector<ParamDescriptor*> descriptors;
    descriptors.reserve(byId.size());
    for (const auto& [id, change] : byId) descriptors.push_back(&change.parameter.Descriptor());
    ValueChanges sorted;
    for (ParamDescriptor* const descriptor : vexa::InSettingOrder(descriptors))
        sorted.push_back(byId.at(descriptor->GetParamID()));
    return sorted;
}

Json ValueJson(const Parameter& parameter, const Value& value)
{
    Json json = parameter.ToJson(value);
    json.erase("id");
    json.erase("param");
    return json;
}

void PrintChanged(Session& session, const Parameter& parameter, const Value& from, const Value& to,
                  const std::string& result)
{
    if (!session.json)
        return session.Print(parameter.Name() + " " + parameter.Text(from) + " -> " + parameter.Text(to) +
                             " " + result);
    session.Print(Json{{"id", parameter.IdText()},
                       {"param", parameter.Name()},
                       {"from", ValueJson(parameter, from)},
                       {"to", ValueJson(parameter, to)},
                       {"result", result}});
}

bool AwaitDevice(vexa::Device& device, const vexa::Deadline& deadline, bool mayBeInterrupted)
{
    constexpr unsigned int kSlice = 100;  // between two looks for a signal
    for (;;) {
        if (mayBeInterrupted) Interrupts::Instance().Check();
        if (device.WaitUntilInStep(std::chrono::milliseconds(std::min(kSlice, deadline.Left())))) return true;
        if (deadline.IsOver()) return false;
    }
}

Progress Write(vexa::Device& device, ValueChanges& changes, const vexa::Deadline& patience)
{
    constexpr int kMostTimes = 3;
    std::vector<ValueChange*> left;
    for (ValueChange& change : changes)
        if (change.Differs()) left.push_back(&change);
    for (int times = 0; times < kMostTimes;) {
        Progress progress = WriteEach(device, left);
        if (progress.status == ExitStatus::kDone) progress = ReadBack(device, changes, left);
        if (progress.status == ExitStatus::kDone && left.empty()) return progress;
        if (progress.status == ExitStatus::kDone)
            ++times;
        else if (!IsLost(progress) || !ComesBack(device, patience))
            return progress;
    }
    return {ExitStatus::kRefused, left.front()->parameter.Name(),
            "the device does not keep " + left.front()->parameter.Text(left.front()->to)};
}

ExitStatus MakeChanges(Session& session, vexa::Device& device, const ValueChanges& wanted,
                       const std::optional<double>& confirm)
{
    if (confirm && session.isOneOfMany) return session.Fail(ExitStatus::kUsage, "--confirm takes one device");
    ValueChanges changes = InOrder(wanted);
    Rollback rollback(session, device, confirm);
    rollback.Start(changes);
    try {
        const Progress progress = Write(device, changes, confirm ? rollback.End() : vexa::Deadline(0));
        if (progress.status != ExitStatus::kDone) {
            session.Fail(progress.status,
                         progress.name + ": " + progress.reason + "; the old values are put back",
                         {{"param", progress.name}, {"reason", progress.reason}});
            rollback.Undo();
            return confirm ? ExitStatus::kRefused : progress.status;
        }
        if (!confirm) rollback.Confirm();  // it is done, also where nobody reads what follows
        for (const ValueChange& change : changes)
            if (change.Differs()) PrintChanged(session, change.parameter, change.from, change.to, "stored");
        return confirm ? AskWhetherToKeep(session, device, rollback) : ExitStatus::kDone;
    } catch (...) {
        rollback.Undo();
        throw;
    }
}
