/// The daemon's memory, from outside.
#include <chrono>
#include <thread>

#include "config/access/connector/config_factory_impl.h"
#include "config/config.h"
#include "parts.h"
#include "process.h"
#include "table.h"

namespace {

constexpr double kClientTarget = 40;  // KiB of a client that is connected and idle

Config* Connect(int port)
{
    return ConfigFactoryImpl::GetInstance()->Connect("tcp://127.0.0.1:" + std::to_string(port));
}

Config* ConnectFirst(int port)
{
    for (int i = 0; i < 100; ++i) {
        if (Config* const client = Connect(port)) return client;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return nullptr;
}

}  // namespace

void MeasureDaemon()
{
    PrintPart("memory of the daemon");
    const int port = FreePort();
    const Process daemon({MAINSTAY, "--tcp-port", std::to_string(port), "--udp-port", "0", "--no-mq"});
    std::vector<Config*> clients{ConnectFirst(port)};
    if (!clients[0]) exit(1);
    clients[0]->Get(eParamID_RegisterSave);
    const double rest = ResidentKiB(daemon.Id());
    PrintFigure("resident, with one client", Format(rest / 1024, 1, "MiB"));
    for (const size_t count : {100u, 1000u}) {
        while (clients.size() <= count) {
            clients.push_back(Connect(port));
            clients.back()->Get(eParamID_RegisterSave);
        }
        const double each = (ResidentKiB(daemon.Id()) - rest) / static_cast<double>(count);
        PrintRow("each of " + std::to_string(count) + " idle TCP clients, thread and stack included",
                 Format(kClientTarget, 0, "KiB"), Format(each, 1, "KiB"), each / kClientTarget,
                 Target{Target::kAtMost, 1});
    }
    for (Config* const client : clients) ConfigFactoryImpl::GetInstance()->Disconnect(client);
}
