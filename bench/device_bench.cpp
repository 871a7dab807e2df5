/// vexa::Device: all values at once, values that are kept, and writing with reading back.
#include "device/device.h"

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "config/access/connector/config_factory_impl.h"
#include "config/access/server/network/network_server.h"
#include "config/config.h"
#include "config/descriptors/registry/registry.h"
#include "delay.h"
#include "device/format.h"
#include "parts.h"
#include "ping_pong.h"
#include "process.h"
#include "table.h"

namespace {

using vexa::Device;
constexpr eParam_t kNumber = eParamID_RegisterSave, kKept = eParamID_FanSpeed;

/// All parameters that TCP carries.
std::vector<eParam_t> Readable(const Device& device)
{
    std::vector<eParam_t> ids;
    for (const auto& [id, descriptor] : device.Parameters()->All())
        if (!vexa::HoldsBytes(*descriptor)) ids.push_back(id);
    return ids;
}

void WaitFor(const Device& device)
{
    if (!device.WaitUntilInStep(std::chrono::seconds(10))) exit(1);
}

void CompareReading(Device& device, int port)
{
    const std::vector<eParam_t> all = Readable(device);
    const std::string count = std::to_string(all.size());
    CompareRates("all " + count + " values over TCP at once; one after the other", 20, Repeat([&] {
                     for (const eParam_t id : all) device.Get(id);
                 }),
                 Repeat([&] { device.GetMany(all); }), 5.0);
    PrintFigure("all " + count + " values at once",
                Format(1e6 * SecondsOf([&] { device.GetMany(all); }), 0, " us"));

    constexpr std::chrono::milliseconds kOneWay(10);
    const Delay path(port, kOneWay);
    const std::string far = "127.0.0.1:" + std::to_string(path.Port());
    Device distant(far);
    WaitFor(distant);
    const double read = SecondsOf([&] { distant.GetMany(all); });
    PrintFigure("the same over a path of 20 ms, in round trips", Format(read / 0.02, 1));
    const double connect = SecondsOf([&] { WaitFor(Device(far)); });
    PrintFigure("connecting, the model and all values there, in round trips", Format(connect / 0.02, 1));
}

/// A server whose thread owns it, up to the end of the process.
int Serve()
{
    auto* const server = new net::NetworkServer(AF_INET, SOCK_STREAM, 0);
    if (!server->Init() || !server->Start()) exit(1);
    return server->Port();
}

void CompareWriting()
{
    const OneProcessor inTurns;
    // A configuration of its own: nobody else hears of the changes.
    Device device("127.0.0.1:" + std::to_string(Serve()) + "/configid=1");
    WaitFor(device);
    PingPong bare(SOCK_STREAM);
    unsigned int value = 0;
    CompareRates("Set over TCP, and reading back", 5'000, Repeat([&] { bare.Exchange(); }),
                 Repeat([&] { device.Set(kNumber, value = value % 20 + 1); }), 0.8);
}

}  // namespace

void MeasureDevices()
{
    PrintPart("devices");
    CreateDescriptors();
    ConfigFactory& connector = *ConfigFactoryImpl::GetInstance();
    Config* const store = connector.Connect("local:");
    const int port = Serve();
    Device device("127.0.0.1:" + std::to_string(port));
    WaitFor(device);
    CompareReading(device, port);
    CompareRates("Get of a kept value; of a store", 100'000, Repeat([&] { store->Get(kKept); }),
                 Repeat([&] { device.Kept(kKept); }), 0.5);
    CompareWriting();
    connector.Disconnect(store);
}
