#include "mainstay/control/rollback.h"

#include <pthread.h>

#include <algorithm>
#include <iterator>

#include "config/base/log.h"
#include "config/base/no_signals.h"
#include "config/base/origin.h"
#include "config/config.h"
#include "config/descriptors/param_descriptor.h"
#include "device/catalogue.h"
#include "device/format.h"
#include "mainstay/control/reports.h"

namespace control {

Rollback::Rollback(Config& store, std::string model) : m_store(store), m_model(std::move(model))
{
    const vexa::NoSignals inherited;
    m_thread = std::thread([this] { Run(); });
}

Rollback::~Rollback()
{
    {
        const vexa::MutexLock hold(m_lock);
        m_stop = true;
        m_changed.NotifyAll();
    }
    m_thread.join();
    std::vector<Hold> left;
    {
        const vexa::MutexLock hold(m_lock);
        left.swap(m_holds);
    }
    PutBack(left, "the daemon stops");
}

void Rollback::AddTo(Handlers& handlers)
{
    handlers["hold"] = [this](const Json& request, const Peer& who) { return AddHold(request, who); };
    handlers["confirm"] = [this](const Json& request, const Peer&) { return Confirm(request); };
}

// --- requests ---

Rollback::Value Rollback::Parse(const Json& entry) const
{
    const auto name = entry.at("param").get<std::string>();
    const auto catalogue = vexa::Catalogue::Of(m_model);
    ParamDescriptor* const descriptor = catalogue ? catalogue->Find(name) : nullptr;
    if (!descriptor) throw Failure("unknown parameter " + name);
    if (vexa::HoldsBytes(*descriptor)) throw Failure(name + " holds data, which cannot be put back");
    const Json& value = entry.at("value");
    const bool isText = descriptor->GetParamType() == eCParam_StringValue;
    if (isText ? !value.is_string() : !value.is_number_unsigned())
        throw Failure(name + (isText ? " takes a text" : " takes a number of 0 or more"));
    const bool isSetting = descriptor->GetPersistenceType() == ePersist;
    if (isText) return {descriptor->GetParamID(), value.get<std::string>(), isSetting};
    if (value.get<uint64_t>() > UINT32_MAX) throw Failure(name + ": the number is too large");
    return {descriptor->GetParamID(), value.get<unsigned int>(), isSetting};
}

Json Rollback::AddHold(const Json& request, const Peer& who)
{
    const auto seconds = request.at("seconds").get<int64_t>();
    if (seconds < 1 || seconds > kMaxSeconds)
        throw Failure("takes 1 to " + std::to_string(kMaxSeconds) + " seconds");
    std::vector<Value> values;
    for (const Json& entry : request.at("values")) values.push_back(Parse(entry));
    timeval until{};
    gettimeofday(&until, nullptr);
    until.tv_sec += seconds;
    const vexa::Deadline end(static_cast<unsigned int>(seconds * 1000));
    const vexa::MutexLock hold(m_lock);
    if (m_holds.size() >= kMaxHolds) throw Failure("too many changes wait to be confirmed");
    m_holds.push_back({++m_lastNumber, end, who.text, std::move(values)});
    m_changed.NotifyAll();
    return {{"hold", m_lastNumber}, {"until", TimeText(until)}};
}

Json Rollback::Confirm(const Json& request)
{
    const unsigned int number = request.value("hold", 0u);
    const vexa::MutexLock hold(m_lock);
    const size_t confirmed =
        std::erase_if(m_holds, [&](const Hold& held) { return number == 0 || held.number == number; });
    return {{"confirmed", confirmed}};
}

// --- time ---

void Rollback::Run()
{
    pthread_setname_np(pthread_self(), "ms-rollback");
    for (std::vector<Hold> overdue; TakeOverdue(overdue);) {
        try {
            PutBack(overdue, "nobody has confirmed in time");
        } catch (const std::exception& error) {
            vexa::Print("mainstay: a change could not be undone: %s\n", error.what());
        }
    }
}

/// Waits for holds whose time is over. @return false at the end.
bool Rollback::TakeOverdue(std::vector<Hold>& overdue)
{
    const vexa::MutexLock hold(m_lock);
    for (;;) {
        if (m_stop) return false;
        const auto first = std::ranges::find_if(m_holds, [](const Hold& held) { return held.end.IsOver(); });
        if (first != m_holds.end()) {
            overdue.assign(std::move_iterator(first), std::move_iterator(m_holds.end()));
            m_holds.erase(first, m_holds.end());
            return true;
        }
        const auto next =
            std::ranges::min_element(m_holds, {}, [](const Hold& held) { return held.end.End(); });
        if (next == m_holds.end())
            m_changed.Wait(m_lock);
        else
            m_changed.Wait(m_lock, vexa::Deadline(next->end));
    }
}

void Rollback::PutBack(const std::vector<Hold>& holds, const char* why)
{
    const vexa::OriginScope origin("not confirmed");
    for (auto held = holds.rbegin(); held != holds.rend(); ++held) {
        const size_t refused = PutBack(held->values);
        vexa::Print("mainstay: a change by %s is undone, for %s: put back %zu, refused %zu\n",
                    held->who.c_str(), why, held->values.size() - refused, refused);
    }
}

/// A setting may set another one back, or keep it from coming back before it: those are set once more. A command is not,
/// which goes back to its idle value by itself.
/// @return how many settings did not come back.
size_t Rollback::PutBack(const std::vector<Value>& values)
{
    constexpr int kMostTimes = 3;
    for (int times = 0; times < kMostTimes; ++times)
        for (const Value& held : values)
            if (held.isSetting ? !Has(held) : times == 0)
                std::visit([&](const auto& value) { m_store.Set(held.id, value); }, held.value);
    return static_cast<size_t>(
        std::ranges::count_if(values, [&](const Value& held) { return held.isSetting && !Has(held); }));
}

bool Rollback::Has(const Value& value) const
{
    const auto* const text = std::get_if<std::string>(&value.value);
    if (!text) return m_store.Get(value.id) == std::get<unsigned int>(value.value);
    std::string now;
    return m_store.Get(value.id, now) && now == *text;
}

}  // namespace control
