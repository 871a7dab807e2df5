#include "device/device.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <optional>

#include "config/access/server/network/network_tcp_connection.h"
#include "support/gate.h"
#include "support/raw_peer.h"
#include "support/scripted_server.h"
#include "support/stderr_of.h"
#include "support/test_server.h"

using namespace std::chrono_literals;
using testing::ElementsAre, testing::HasSubstr;
using vexa::Device, vexa::DeviceState, vexa::Failure, vexa::Value;
using Outcome = vexa::SetResult::Outcome;

namespace {

constexpr std::chrono::milliseconds kPatience(RawPeer::kDeadlineMs);
const vexa::DeviceOptions kQuick{.timeout = 2s, .probeInterval = 200ms};

/// "RegisterSave=7", with a mark when the device did not tell it: "RegisterSave=7 *".
std::string TextOf(const std::optional<vexa::Change>& change)
{
    if (!change) return "nothing";
    const bool isTold = change->kind == vexa::Change::Kind::kEvent;
    return change->name + "=" + change->Text() + (isTold ? "" : " *");
}

/// A device, of the transport of the test, and the store that it serves.
class DeviceTest : public testing::TestWithParam<std::string> {
  protected:
    DeviceTest()
    {
        if (GetParam() != "local") m_server.emplace(GetParam() == "tcp" ? SOCK_STREAM : SOCK_DGRAM);
        device.emplace(GetParam() == "local" ? "local:configid=" + std::to_string(kConfig)
                                             : m_server->Uri(GetParam().c_str(), kConfig),
                       kQuick);
        EXPECT_TRUE(device->WaitUntilInStep(kPatience)) << device->Status().reason;
    }
    bool CarriesData() const { return GetParam() != "tcp"; }

    static constexpr eConfigID_t kConfig = 81;
    LocalStore store{kConfig};
    std::optional<Device> device;

  private:
    std::optional<TestServer> m_server;
};

TEST_P(DeviceTest, SaysWhatBecameOfAValue)
{
    const auto set = [this](const char* name, const char* text) { return device->Set(name, text); };
    vexa::SetResult result = set("RegisterSave", "7");
    EXPECT_EQ(result.outcome, Outcome::kStored);
    EXPECT_TRUE(result);
    EXPECT_EQ(store->Get(eParamID_RegisterSave), 7u);
    EXPECT_EQ(device->Kept("RegisterSave").value, Value(7u));

    result = set("RegisterSave", "500");
    EXPECT_EQ(result.outcome, Outcome::kCorrected);
    EXPECT_EQ(result.now, Value(20u));
    EXPECT_EQ(result.reason, "outside 1 to 20");

    result = set("SystemCommand", "99");
    EXPECT_EQ(result.outcome, Outcome::kRefused);
    EXPECT_THAT(result.reason, HasSubstr("not one of 0 "));

    EXPECT_EQ(set("SysName", "Scène").now, Value("Scène"));
    EXPECT_EQ(device->Get("SysName").value, Value("Scène"));
    EXPECT_EQ(device->Get("SystemCommand").value, Value(0u)) << "a 0 is a value";

    result = set("RegisterSave", "all");
    EXPECT_EQ(result.outcome, Outcome::kNotSent);
    EXPECT_EQ(result.reason, "it takes 1 to 20");
    result = set("RegistrSave", "7");
    EXPECT_EQ(result.outcome, Outcome::kNotSent);
    EXPECT_EQ(result.failure, Failure::kNoSuchParameter);
    EXPECT_EQ(device->Get(eParam_t{0x12345678}).failure, Failure::kNoSuchParameter);
    EXPECT_EQ(device->Set("TestData", "<00ff>").outcome,
              CarriesData() ? Outcome::kStored : Outcome::kNotSent);
    EXPECT_EQ(device->Get("TestData").failure, CarriesData() ? Failure::kNone : Failure::kNoValue);
    if (GetParam() != "local") {
        EXPECT_EQ(device->Set("SysName", std::string(30'000, 'x')).outcome, Outcome::kNotSent);
    }
}

TEST_P(DeviceTest, SetsAllOrNothing)
{
    auto results = device->SetMany(
        {{eParamID_RegisterRecall, 9u}, {eParamID_RegisterSave, 500u}, {eParamID_SysName, 1u}});
    EXPECT_EQ(results[0].outcome, Outcome::kNotSent);
    EXPECT_EQ(results[0].reason, "another value of the same request cannot be set");
    EXPECT_THAT(results[1].reason, HasSubstr("outside"));
    EXPECT_EQ(results[2].reason, "it takes a text");
    EXPECT_NE(store->Get(eParamID_RegisterRecall), 9u);

    results = device->SetMany(
        {{eParamID_RegisterRecall, 6u}, {eParamID_SysName, "a"}, {eParamID_RegisterSave, 5u}});
    for (const auto& result : results) EXPECT_EQ(result.outcome, Outcome::kStored) << result.reason;
    const auto values = device->GetMany({eParamID_RegisterRecall, eParam_t{1}, eParamID_SysName});
    EXPECT_EQ(values[0].value, Value(6u));
    EXPECT_EQ(values[1].failure, Failure::kNoSuchParameter);
    EXPECT_EQ(values[2].value, Value("a"));
}

TEST_P(DeviceTest, TellsChangesAndBeginsWithTheValues)
{
    store->Set(eParamID_SysName, std::string("before"));
    ASSERT_TRUE(Eventually([&] { return device->Kept("SysName").value == Value("before"); }));
    vexa::ChangeQueue changes = device->Changes({"registersav?", "SysName"});
    EXPECT_EQ(TextOf(changes.Next(kPatience)), "SysName=before *");
    EXPECT_EQ(TextOf(changes.Next(kPatience)), "RegisterSave=1 *");
    EXPECT_EQ(TextOf(changes.Next(0ms)), "nothing");
    store->Set(eParamID_SysName, std::string("after"));
    pollfd wait{changes.Descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, RawPeer::kDeadlineMs), 1);
    EXPECT_EQ(TextOf(changes.Next(kPatience)), "SysName=after");
    EXPECT_EQ(poll(&wait, 1, 0), 0);
}

TEST_P(DeviceTest, CallbacksMayUseTheDeviceAndEndWithTheirSubscription)
{
    Gate gate;
    std::atomic<int> heard = 0;
    vexa::Subscription watch = device->Watch(
        {"RegisterSave"},
        [&](const vexa::Change&) {
            EXPECT_TRUE(device->Set("SysName", "from the callback"));
            ++heard;
            gate.Pass();
        },
        false);
    store->Set(eParamID_RegisterSave, 1u);
    EXPECT_TRUE(gate.KeepsWaiting([&] { watch = vexa::Subscription(); }));
    store->Set(eParamID_RegisterSave, 2u);
    ASSERT_TRUE(Eventually([&] { return device->Kept("RegisterSave").value == Value(2u); }));
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(device->Kept("SysName").value, Value("from the callback"));
}

INSTANTIATE_TEST_SUITE_P(, DeviceTest, testing::Values("tcp", "udp", "local"),
                         [](const auto& row) { return row.param; });

TEST(Device, WhoReadsTooSlowlyIsToldHowMuchWasSkipped)
{
    constexpr unsigned int kChanges = 200;
    const std::string filler(size_t{64} * 1024, 'x');
    LocalStore store(83);
    Device device("local:configid=83");
    ASSERT_TRUE(device.WaitUntilInStep(kPatience));
    vexa::ChangeQueue changes = device.Changes({"SysName", "RegisterSave"}, false);
    store->Set(eParamID_RegisterSave, 9u);
    for (unsigned int i = 1; i <= kChanges; ++i) store->Set(eParamID_SysName, std::to_string(i) + filler);
    const auto first = changes.Next(0ms);
    EXPECT_EQ(TextOf(first), "RegisterSave=9");
    uint64_t skipped = first->skipped, told = 0;
    std::string last;
    while (const auto change = changes.Next(0ms)) {
        ++told;
        skipped += change->skipped;
        last = change->Text();
    }
    EXPECT_EQ(last, std::to_string(kChanges) + filler);
    EXPECT_LT(told, kChanges);
    EXPECT_EQ(told + skipped, kChanges);
}

TEST(Device, LeavesWithoutAnErrorInTheLog)
{
    TestServer server;
    const std::string lines = StderrOf([&] {
        {
            Device device(server.Uri("tcp", 82));
            EXPECT_TRUE(device.WaitUntilInStep(kPatience));
        }
        EXPECT_TRUE(Eventually([] { return net::NetworkTCPConnection::Count() == 0; }));
    });
    EXPECT_THAT(lines, testing::Not(HasSubstr("error")));
}

// ---- one that is not as it should be ----

/// As a device does whose numbers are all 7.
void Answer(ScriptedPeer& peer, const net::XCONFIGMGR_REQUEST_T& request, uint32_t model = 8)
{
    if (request.msgtype == XCFG_GET_PARAM_REQUEST)
        peer.Send(
            ReplyTo(request, XCFG_GET_PARAM_RESPONSE, request.paramID == eParamID_ProductID ? model : 7));
    else
        peer.Send(ReplyTo(request, XCFG_GET_STREAM_PARAM_RESPONSE, 0, TextPayload("x", request.paramID)));
}

/// Up to the end of the connection or until `answers` requests are answered.
void Serve(ScriptedPeer& peer, uint32_t model, int answers = INT_MAX)
{
    while (answers-- > 0 && !testing::Test::HasFailure()) {
        const auto request = peer.Receive();
        if (request.msgtype == XCFG_DISCONNECT_REQUEST || request.msgtype == 0) return;
        Answer(peer, request, model);
    }
}

/// One that serves so many requests and then says nothing more.
void ConnectAndServe(ScriptedPeer& peer, uint32_t model, int answers = INT_MAX)
{
    peer.Connect();
    peer.Receive(28);
    Serve(peer, model, answers);
    if (answers != INT_MAX) peer.AwaitEnd();
}

TEST(Device, WhatIsNoDeviceHasAReason)
{
    const struct {
        const char* reason;
        DeviceState state;
        std::function<void(ScriptedPeer&)> script;
    } kRows[] = {
        {"the device answers error 5", DeviceState::kRefused,
         [](ScriptedPeer& peer) { peer.Connect(XCFG_CONNECT_RESPONSE, 5); }},
        {"the device has ended the connection", DeviceState::kRefused,
         [](ScriptedPeer& peer) { peer.Close(); }},
        {"it answers with something else than its protocol", DeviceState::kRefused,
         [](ScriptedPeer& peer) { peer.Send("HTTP/1.1 400 Bad Request\r\n\r\n"); }},
        {"no answer to the request to connect in time", DeviceState::kConnecting,
         [](ScriptedPeer& peer) { peer.AwaitEnd(); }},
        {"its model, number 4711, is not known to this version", DeviceState::kOtherModel,
         [](ScriptedPeer& peer) { ConnectAndServe(peer, 4711, 2); }},
        {"it is HAZEL, not OAK", DeviceState::kOtherModel,
         [](ScriptedPeer& peer) { ConnectAndServe(peer, 5, 2); }},
        {"no answer in time", DeviceState::kConnecting,
         [](ScriptedPeer& peer) { ConnectAndServe(peer, 8, 9); }},
    };
    for (const auto& [reason, state, script] : kRows) {
        SCOPED_TRACE(reason);
        ScriptedServer server(SOCK_STREAM, script);
        Device device(server.Uri(), {.model = "OAK", .timeout = 100ms});
        std::atomic<bool> isTold = false;
        const auto watch =
            device.WatchStatus([&, wanted = state, why = reason](const vexa::DeviceStatus& status) {
                if (status.state == wanted && status.reason.find(why) != std::string::npos) isTold = true;
            });
        EXPECT_TRUE(Eventually([&] { return isTold.load(); })) << device.Status().reason;
    }
}

TEST(Device, OneThatNamesNoKnownModelMayBeTakenForOne)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) { ConnectAndServe(peer, 4711); });
    Device device(server.Uri(), {.model = "OAK", .assumesModel = true});
    ASSERT_TRUE(device.WaitUntilInStep(kPatience)) << device.Status().reason;
    EXPECT_TRUE(device.Status().isModelAssumed);
    EXPECT_EQ(device.Kept("ReelName").value, Value("x"));
}

/// Answers the handshake, and then requests up to the Get of a parameter, which the script answers itself.
net::XCONFIGMGR_REQUEST_T ServeUpTo(ScriptedPeer& peer, eParam_t id)
{
    peer.Connect();
    peer.Receive(28);
    for (;;) {
        const auto request = peer.Receive();
        if (request.paramID == id || testing::Test::HasFailure()) return request;
        Answer(peer, request);
    }
}

TEST(Device, AChangeBeforeAnAnswerIsNewerThanTheAnswer)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        const auto get = ServeUpTo(peer, eParamID_FanSpeed);
        peer.Send(ReplyTo(get, XCFG_PARAM_CHANGED_EVENT, 77) + ReplyTo(get, XCFG_GET_PARAM_RESPONSE, 66));
        Serve(peer, 8);
    });
    Device device(server.Uri());
    ASSERT_TRUE(device.WaitUntilInStep(kPatience)) << device.Status().reason;
    EXPECT_EQ(device.Kept(eParamID_FanSpeed).value, Value(77u));
}

TEST(Device, TextsOfEitherByteOrderAreUnderstoodAndAnsweredInIt)
{
    for (const std::endian order : {std::endian::big, std::endian::native}) {
        std::string written;
        const auto payload = [order](const std::string& text) {
            StringValue value(0, eParamID_ReelName, eCParam_StringValue, text);
            return net::WritePayload(&value, order);
        };
        ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) {
            auto request = ServeUpTo(peer, eParamID_ReelName);
            peer.Send(ReplyTo(request, XCFG_GET_STREAM_PARAM_RESPONSE, 0, payload("Szene")));
            while ((request = peer.Receive()).msgtype != XCFG_SET_STREAM_PARAM_REQUEST &&
                   !testing::Test::HasFailure())
                peer.Send(request.msgtype == XCFG_GET_PARAM_REQUEST
                              ? ReplyTo(request, XCFG_GET_PARAM_RESPONSE, 1)
                              : ReplyTo(request, XCFG_GET_STREAM_PARAM_RESPONSE, 0, payload("Szene")));
            written = peer.ReceiveBytes(request.streamLength);
            Serve(peer, 8);
        });
        Device device(server.Uri(), {.probeInterval = 60s});
        ASSERT_TRUE(device.WaitUntilInStep(kPatience)) << device.Status().reason;
        EXPECT_EQ(device.Kept(eParamID_ReelName).value, Value("Szene"));
        device.Set(eParamID_ReelName, "Take");
        EXPECT_EQ(written, payload("Take"));
    }
}

}  // namespace
