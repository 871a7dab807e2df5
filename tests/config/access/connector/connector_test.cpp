#include "config/access/connector/local_config_factory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <future>

#include "config/access/connector/reachability.h"
#include "config/access/protocol/uri.h"
#include "config/descriptors/integer_descriptor.h"
#include "support/failing_new.h"
#include "support/gate.h"
#include "support/scripted_server.h"
#include "support/store.h"
#include "support/test_server.h"

using testing::HasSubstr;
using vexa::config::access::LocalConfigFactory;

namespace {

TEST(Connector, LocalConnectionsOfOneNumberShareAStoreWhileItIsUsed)
{
    {
        const LocalStore first(3), second(3), zero(0);
        const Connected other("local:");
        EXPECT_EQ(first.get(), second.get());
        EXPECT_EQ(other.get(), zero.get());
        EXPECT_NE(first.get(), other.get());
        EXPECT_EQ(first.Manager()->GetUseCount(), 2);
        EXPECT_EQ(first->GetConfigID(), 3);
        first->Set(eParamID_RegisterSave, 9u);
        EXPECT_EQ(second->Get(eParamID_RegisterSave), 9u);
    }
    EXPECT_EQ(LocalStore(3)->Get(eParamID_RegisterSave), 1u) << "a fresh store";
}

TEST(Connector, UrisThatItRefuses)
{
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    const char* const kFailed = "ConfigFactoryImpl::Connect - _network_factory->Connect() failed\n";
    for (const char* uri :
         {"tcp://127.0.0.1:1", "udp://127.0.0.1:1/caching=true", "tcp:local:", "local:multicast:"})
        EXPECT_THAT(StderrOf([&] { EXPECT_EQ(connector->Connect(uri), nullptr) << uri; }),
                    HasSubstr(kFailed));
    for (const char* order : {"", "little", "bigger", "BIG"}) {
        const std::string uri = std::string("udp://127.0.0.1:9/byteorder=") + order;
        EXPECT_THAT(StderrOf([&] { EXPECT_EQ(connector->Connect(uri), nullptr); }),
                    HasSubstr("NetworkFactory::Connect - byteorder is big or left out, uri = " + uri + "\n"));
    }
    for (const char* uri : {"socket://127.0.0.1:43110/caching=true", "", "LOCAL:"})
        EXPECT_EQ(StderrOf([&] { EXPECT_EQ(connector->Connect(uri), nullptr) << uri; }), "");
    connector->Disconnect(nullptr);
}

/// While it lives, the process can open one more descriptor.
class OneDescriptor {
  public:
    OneDescriptor()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit limit = m_before;
        const int next = dup(STDIN_FILENO);
        close(next);
        limit.rlim_cur = static_cast<rlim_t>(next) + 1;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~OneDescriptor() { setrlimit(RLIMIT_NOFILE, &m_before); }

  private:
    rlimit m_before;
};

TEST(Connector, ACacheThatWouldHearNothingIsNotHandedOut)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs descriptors for itself";
#endif
    ScriptedServer server(SOCK_DGRAM, [](ScriptedPeer& peer) {
        peer.Connect();
        peer.Connect(XCFG_DISCONNECT_RESPONSE);
    });
    const std::string lines = StderrOf([&] {
        const OneDescriptor forRequests;
        EXPECT_EQ(ConfigFactoryImpl::GetInstance()->Connect(server.Uri() + "/caching=true"), nullptr);
    });
    EXPECT_THAT(lines, HasSubstr("ConfigFactoryImpl::Connect - _network_factory->Connect() failed\n"));
}

TEST(Connector, LooksHostNamesUp)
{
    TestServer server;
    const std::string port = std::to_string(server.port);
    const Connected byName("tcp://localhost:" + port);
    EXPECT_NE(byName.get(), nullptr);
    for (const char* host : {"no-such-host.invalid", "300.1.1.1", "0", "0x0"}) {
        const std::string uri = std::string("tcp://") + host + ":" + port;
        EXPECT_THAT(StderrOf([&] { EXPECT_EQ(ConfigFactoryImpl::GetInstance()->Connect(uri), nullptr); }),
                    HasSubstr(std::string("NetworkFactory::Connect - host ") + host + ": "))
            << "and not this host";
    }
}

TEST(Connector, TheCachesOfLostConnectionsAreLost)
{
    CreateDescriptors();
    Config* cache = nullptr;
    {
        ScriptedServer server(SOCK_DGRAM, [](ScriptedPeer& peer) {
            peer.Connect();
            peer.Send(ReplyTo(peer.Receive(), XCFG_GET_PARAM_RESPONSE, 7));
        });
        cache = ConfigFactoryImpl::GetInstance()->Connect(server.Uri() + "/caching=true");
        EXPECT_EQ(cache->Get(eParamID_Camera), 7u);
    }
    EXPECT_EQ(cache->Get(eParamID_Camera), 7u) << "nobody has asked the server since";
    StderrOf([&] { EXPECT_EQ(cache->Get(eParamID_ClipNumber), 0u); });
    EXPECT_FALSE(vexa::IsReachable(*cache));
    StderrOf([&] { EXPECT_EQ(cache->Get(eParamID_Camera), 0u) << "forgotten"; });
    LocalStore store(0);
    EXPECT_TRUE(vexa::IsReachable(*store));
    EXPECT_FALSE(vexa::AddConnectionListener(*store, nullptr));
}

TEST(Connector, NumberOfAUri)
{
    LocalConfigFactory factory;
    for (const auto& [uri, id] : {std::pair{"local:", 0},
                                  {"local:configid=-1", -1},
                                  {"local:configid=", 0},
                                  {"local:configid=x", 0},
                                  {"local:/configid=12abc", 12},
                                  {"local:configid=99999999999", INT32_MAX},
                                  {"local:configid=-99999999999999999999", INT32_MIN}})
        EXPECT_EQ(factory.GetConfigID(uri), id) << uri;
}

TEST(Connector, AStoreOfAnotherFactoryIsNotTracked)
{
    LocalConfigFactory factory;
    TestStore foreign(5);
    foreign->IncrementUseCount();
    const char* const kMessage = "LocalConfigFactory::Disconnect - This instance not tracking configID 5\n";
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(factory.Disconnect(&*foreign)); }), kMessage);

    Config* const own = factory.Connect("local:configid=5");
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(factory.Disconnect(&*foreign)); }), kMessage)
        << "the same number only";
    EXPECT_EQ(foreign->GetUseCount(), 1);
    EXPECT_TRUE(factory.Disconnect(own));
    EXPECT_FALSE(factory.Disconnect(nullptr));
}

struct PreconditionThatHoldsAStore : vexa::config::UpdatePrecondition {
    explicit PreconditionThatHoldsAStore(std::function<void()> react = nullptr) : onUpdate(std::move(react))
    {
    }
    ~PreconditionThatHoldsAStore() override { ConfigFactoryImpl::GetInstance()->Disconnect(held); }
    bool IsUpdateValid(Config*, vexa::config::IntegerQueue&) override
    {
        if (onUpdate) onUpdate();
        return true;
    }
    bool IsUpdateValid(Config*, vexa::config::StringQueue&) override { return true; }
    bool IsUpdateValid(Config*, eParam_t, Serializable&) override { return true; }

    const std::function<void()> onUpdate;
    Config* const held = ConfigFactoryImpl::GetInstance()->Connect("local:configid=22");
};

TEST(Connector, TheLastUserOfAStoreMayLeaveInACallback)
{
    CreateDescriptors();
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    for (const bool inPrecondition : {false, true}) {
        Config* const store = connector->Connect("local:configid=21");
        const auto leave = [&] {
            store->Set(eParamID_ReelName, std::string("from the callback"));
            connector->Disconnect(store);
            EXPECT_TRUE(ConfigManager::IDOf(store)) << "the change is still under way";
            Config* const next = connector->Connect("local:configid=21");
            EXPECT_NE(next, store);
            EXPECT_EQ(next->Get(eParamID_RegisterSave), 1u);
            connector->Disconnect(next);
        };
        RecordingListener leaving([&] {
            if (!inPrecondition && leaving.Heard().size() == 1) leave();
        });
        RecordingListener behind;
        store->AddConfigEventListener(&leaving);
        store->AddConfigEventListener(&behind);
        if (inPrecondition)
            StderrOf([&] { store->AddUpdatePrecondition(new PreconditionThatHoldsAStore(leave)); });
        EXPECT_TRUE(store->Set(eParamID_RegisterSave, 2u));
        EXPECT_FALSE(ConfigManager::IDOf(store));
        EXPECT_EQ(behind.Heard().size(), inPrecondition ? 1u : 0u)
            << "not called once the store was given back";
    }
}

TEST(Connector, WhatIsDeletedWithAStoreMayUseTheConnector)
{
    CreateDescriptors();
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    Config* const store = connector->Connect("local:configid=21");
    StderrOf([&] { store->AddUpdatePrecondition(new PreconditionThatHoldsAStore); });
    std::promise<void> done;
    std::thread leaving([&] {
        connector->Disconnect(store);
        done.set_value();
    });
    ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready)
        << "it waits for itself";
    leaving.join();
}

TEST(Connector, WhatIsGivenBackTwiceIsLeftAlone)
{
    TestServer server;
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    for (const std::string& uri : {std::string("local:configid=21"), server.Uri("tcp")}) {
        Config* const config = connector->Connect(uri);
        connector->Disconnect(config);
        EXPECT_EQ(StderrOf([&] { connector->Disconnect(config); }), "");
    }
}

TEST(Connector, WithoutMemoryThereIsAWholeStoreOrNone)
{
    CreateDescriptors();
    const auto kParameters = ::GetParamIDs().size();
    ConfigFactoryImpl::DestroyInstance();
    Config* store = nullptr;
    const std::string longUri = "local:configid=0000000000000000000023";
    std::string uri;
    StderrOf([&] {
        EXPECT_GT(WithEachAllocationFailing(
                      [&](int) { uri = longUri; },
                      [&] { store = ConfigFactoryImpl::GetInstance()->Connect(std::move(uri)); },
                      [&] {
                          size_t values = 0;
                          if (!store) return;
                          for (const eParam_t id : ::GetParamIDs())
                              values += store->GetSerializable(id) != nullptr;
                          EXPECT_EQ(values, kParameters);
                          ConfigFactoryImpl::GetInstance()->Disconnect(store);
                          EXPECT_FALSE(ConfigManager::IDOf(store));
                      }),
                  10);
    });
    EXPECT_TRUE(store);
}

/// Stops the store that asks for its default first.
struct StoppingDescriptor : IntegerDescriptor {
    unsigned int GetFactoryDefault() override
    {
        gate.Pass();
        return 0;
    }
    Gate gate;
};

TEST(Connector, AThreadThatConnectsWhileAStoreIsMadeGetsThatStore)
{
    constexpr eParam_t kOwn{0x01020305};
    CreateDescriptors();
    LocalConfigFactory factory;
    StoppingDescriptor descriptor;
    descriptor.SetParamID(kOwn);
    g_paramDescriptors[kOwn] = &descriptor;
    Config *first = nullptr, *second = nullptr;
    {
        const std::jthread making([&] { first = factory.Connect("local:configid=77"); });
        EXPECT_TRUE(descriptor.gate.KeepsWaiting([&] { second = factory.Connect("local:configid=77"); }));
    }
    g_paramDescriptors.erase(kOwn);
    EXPECT_EQ(first, second);
    EXPECT_TRUE(factory.Disconnect(first) && factory.Disconnect(second));
}

TEST(Connector, ANewInstanceDoesNotKnowTheStoresOfTheOld)
{
    ConfigFactory* const before = ConfigFactoryImpl::GetInstance();
    EXPECT_EQ(ConfigFactoryImpl::GetInstance(), before);
    CreateDescriptors();
    Config* const store = before->Connect("local:configid=9");
    ConfigFactoryImpl::DestroyInstance();
    store->Set(eParamID_RegisterSave, 2u);  // its user may go on
    EXPECT_THAT(StderrOf([&] { ConfigFactoryImpl::GetInstance()->Disconnect(store); }),
                HasSubstr("not tracking configID 9"));
    delete store;
    ConfigFactoryImpl::DestroyInstance();
    ConfigFactoryImpl::DestroyInstance();
}

TEST(Uri, DefaultEndpoints)
{
    for (const auto& [transport, config, events] :
         {std::tuple{"socket", "socket://127.0.0.1:43110/caching=true", "socket://127.0.0.1:43110"},
          {"udp", "udp://127.0.0.1:43110", "multicast://127.0.0.1:63110"},
          {"tcp", "tcp://127.0.0.1:43110", "tcp://127.0.0.1:43110"},
          {"TCP", "INVALID_URI", "INVALID_URI"}}) {
        EXPECT_EQ(GetConfigURI(transport), config);
        EXPECT_EQ(GetEventsURI(transport), events);
    }
}

TEST(Uri, Parse)
{
    struct {
        std::string text;
        int found;  // 3: accepted
        const char* reason;
        std::string parts = "old|old|old";
    } rows[] = {
        {"tcp://127.0.0.1:43110/caching=true", 3, "what follows is ignored", "tcp|127.0.0.1|43110"},
        {" a \t b\nc ", 3, "any blank separates", "a|b|c"},
        {"tcp://" + std::string(99, 'a') + ":1", 3, "the longest part", "tcp|" + std::string(99, 'a') + "|1"},
        {"udp://127.0.0.1", 2, "no port"},
        {"://", 0, "separators alone"},
        {"tcp://" + std::string(100, 'a') + ":1", 1, "a part that is too long, after one that fits"},
        {std::string(1024, ' ') + "a b c", 0, "a text that is too long"},
        {std::string("a b\0 c", 6), 2, "the text ends at a NUL"},
    };
    for (auto& row : rows) {
        url parsed{"old", "old", "old"};
        const std::string message =
            StderrOf([&] { EXPECT_EQ(parsed.parse(row.text), row.found == 3) << row.reason; });
        EXPECT_EQ(parsed.scheme + "|" + parsed.address + "|" + parsed.port, row.parts) << row.reason;
        EXPECT_EQ(message, row.found == 3 ? ""
                                          : "url::parse - unable to parse url, found " +
                                                std::to_string(row.found) + " matches\n");
    }
}

}  // namespace
