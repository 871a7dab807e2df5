#include "vexactl/daemon_hold.h"

#include <cmath>
#include <map>
#include <random>

namespace {

/// In the order in which they are to be set.
Json ValuesOf(const ValueChanges& changes)
{
    Json values = Json::array();
    for (const ValueChange& change : InOrder(changes)) {
        if (change.parameter.HoldsBytes() && !change.Differs()) continue;
        Json value;
        std::visit([&](const auto& from) { value = from; }, change.from);
        values.push_back({{"param", change.parameter.IdText()}, {"value", value}});
    }
    return values;
}

/// What each client of the daemon has asked for, by all that tells it from the others.
std::map<std::string, uint64_t> RequestsByClient(const Json& answer)
{
    std::map<std::string, uint64_t> requests;
    for (const Json& client : answer.at("clients")) {
        std::string who;
        for (const char* const part : {"transport", "address", "since"})
            who += client.at(part).get<std::string>() + " ";
        requests[who] = client.at("requests").get<uint64_t>();
    }
    return requests;
}

/// Whether all texts arrive as they are.
bool IsWhole(const Json& values)
try {
    values.dump();
    return true;
} catch (const Json::exception&) {
    return false;
}

}  // namespace

/// An address would be told twice by daemons in different containers: what tells is that one of its clients asks as
/// often as the tool does, while the tool does.
bool DaemonHold::IsOfDaemon(vexa::Device& device)
{
    constexpr int kTries = 5, kMatches = 2;  // requests of the device's own may come between
    std::random_device random;
    std::uniform_int_distribution<size_t> many(50, 250);
    auto before = RequestsByClient(Ask({{"request", "clients"}}));
    std::map<std::string, int> matches;
    for (int i = 0; i < kTries; ++i) {
        const size_t count = many(random);
        for (const vexa::GetResult& result : device.GetMany(std::vector(count, eParamID_ProductID)))
            m_session.RequireConnection(result.failure, result.reason);
        Interrupts::Instance().Check();
        const auto after = RequestsByClient(Ask({{"request", "clients"}}));
        for (const auto& [who, requests] : after) {
            const auto known = before.find(who);
            if (known != before.end() && requests == known->second + count && ++matches[who] == kMatches)
                return true;
        }
        before = after;
    }
    return false;
}

void DaemonHold::Hold(unsigned int seconds)
{
    m_number =
        Ask({{"request", "hold"}, {"seconds", seconds}, {"values", m_values}}).at("hold").get<unsigned int>();
}

bool DaemonHold::Start(vexa::Device& device, const ValueChanges& changes, double seconds)
try {
    if (!IsOfDaemon(device)) return false;
    m_values = ValuesOf(changes);
    if (!IsWhole(m_values)) return Refused("it takes no text that is no UTF-8");
    try {
        Hold(static_cast<unsigned int>(std::min(std::ceil(seconds), 2e9)));
        return true;
    } catch (const ConnectionError& error) {
        return Refused(error.what());
    }
} catch (const Json::exception&) {
    return false;
} catch (const ConnectionError&) {
    return false;  // of the control socket; one of the device shows in what follows
}

bool DaemonHold::Refused(const std::string& reason)
{
    m_session.Note("the daemon does not hold the old values: " + reason + "; the tool has to stay",
                   {{"reason", reason}});
    return false;
}

bool DaemonHold::Release()
{
    const unsigned int number = std::exchange(m_number, 0);
    return Ask({{"request", "confirm"}, {"hold", number}}).value("confirmed", 0u) > 0;
}

bool DaemonHold::PutBackNow()
try {
    const unsigned int before = m_number;
    Hold(1);
    const unsigned int now = std::exchange(m_number, before);
    Release();
    m_number = now;
    return true;
} catch (const std::exception&) {
    return false;
}
