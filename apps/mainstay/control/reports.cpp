#include "mainstay/control/reports.h"

#include <array>
#include <chrono>
#include <ctime>

#include "config/access/server/clients.h"
#include "services/product/product_id.h"

namespace control {

namespace {

namespace net = vexa::corvalis::config::access;

Json ClientsReport()
{
    Json list = Json::array();
    for (const net::ClientInfo& client : net::Clients())
        list.push_back({{"transport", client.transport},
                        {"address", client.address},
                        {"program", client.program},
                        {"since", TimeText(client.since)},
                        {"config", client.configID},
                        {"listens", client.listens},
                        {"waiting", client.waitingEvents},
                        {"skipped", client.skippedEvents},
                        {"requests", client.requests},
                        {"sets", client.setRequests},
                        {"denied", client.denied},
                        {"right", client.right}});
    return {{"clients", list}};
}

double Uptime()
{
    static const auto begin = std::chrono::steady_clock::now();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

std::map<std::string, size_t> Connected()
{
    std::map<std::string, size_t> connected{{"queue", 0}, {"tcp", 0}, {"udp", 0}};
    for (const net::ClientInfo& client : net::Clients()) ++connected[client.transport];
    return connected;
}

Json StatsReport()
{
    Json stats{{"uptime", Uptime()}, {"clients", Connected()}};
    for (const net::ServerCount& count : net::ServerCounts()) {
        Json& place = stats[count.transport][count.name];
        (*count.kind ? place[count.kind] : place) = count.value;
    }
    return {{"stats", stats}};
}

struct Metric {
    const char *name, *help;
};
constexpr Metric kMetrics[] = {
    {"connections", "Connections accepted"},
    {"refused", "Connections refused, for there are too many"},
    {"cut_off", "Clients cut off that took too little"},
    {"bytes_in", "Bytes received"},
    {"bytes_out", "Bytes sent"},
    {"events_sent", "Events sent, multicast ones once"},
    {"events_skipped", "Events that newer ones have overtaken before a slow client took them"},
    {"denied", "Peers that no rule lets in, and requests that none permits"},
    {"requests", "Requests, by kind"},
};

std::string Heading(const std::string& name, const char* help, const char* type)
{
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string PrometheusText()
{
    std::string text = Heading("mainstay_uptime_seconds", "Time since the start", "gauge") +
                       "mainstay_uptime_seconds " + std::to_string(Uptime()) + "\n" +
                       Heading("mainstay_clients", "Clients that are connected", "gauge");
    for (const auto& [transport, count] : Connected())
        text += "mainstay_clients{transport=\"" + transport + "\"} " + std::to_string(count) + "\n";
    const auto counts = net::ServerCounts();
    for (const Metric& metric : kMetrics) {
        const std::string name = std::string("mainstay_") + metric.name + "_total";
        text += Heading(name, metric.help, "counter");
        for (const net::ServerCount& count : counts)
            if (count.name == std::string(metric.name))
                text += name + "{transport=\"" + count.transport +
                        (*count.kind ? std::string("\",kind=\"") + count.kind : "") + "\"} " +
                        std::to_string(count.value) + "\n";
    }
    return text;
}

Json Stats(const Json& request)
{
    const std::string format = request.value("format", "json");
    if (format == "json") return StatsReport();
    if (format == "prometheus") return {{"text", PrometheusText()}};
    throw Failure("the format is json or prometheus");
}

}  // namespace

std::string TimeText(timeval time)
{
    tm parts{};
    gmtime_r(&time.tv_sec, &parts);
    std::array<char, 64> text;
    const size_t length = strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf(text.data() + length, text.size() - length, ".%03dZ", static_cast<int>(time.tv_usec / 1000));
    return text.data();
}

std::string Now()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return TimeText(now);
}

void AddReports(Handlers& handlers)
{
    Uptime();  // its clock starts
    handlers["clients"] = [](const Json&, const Peer&) { return ClientsReport(); };
    handlers["stats"] = [](const Json& request, const Peer&) { return Stats(request); };
    handlers["version"] = [](const Json&, const Peer&) {
        return Json{{"version", MAINSTAY_VERSION}, {"model", CProductID::getProductID()}};
    };
    Json names = Json::array({"help"});
    for (const auto& [name, handler] : handlers)
        if (name != "help") names.push_back(name);
    handlers["help"] = [names](const Json&, const Peer&) { return Json{{"requests", names}}; };
}

}  // namespace control
