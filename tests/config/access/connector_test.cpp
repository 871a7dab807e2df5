#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "config/access/config_factory_impl.h"
#include "config/access/local_config_factory.h"
#include "config/access/uri.h"
#include "support/store.h"

using testing::HasSubstr;
using vexa::config::access::LocalConfigFactory;

namespace {

/// A connection that is given back.
class Connection {
  public:
    explicit Connection(const std::string& uri)
    {
        StderrOf([&] {
            CreateDescriptors();
            m_config = ConfigFactoryImpl::GetInstance()->Connect(uri);
        });
    }
    ~Connection() { ConfigFactoryImpl::GetInstance()->Disconnect(m_config); }
    Config* get() { return m_config; }

  private:
    Config* m_config = nullptr;
};

TEST(Connector, LocalConnectionsOfOneNumberShareAStoreWhileItIsUsed)
{
    {
        Connection first("local:configid=3"), second("local:configid=3"), other("local:"),
            zero("local:configid=0");
        EXPECT_EQ(first.get(), second.get());
        EXPECT_EQ(other.get(), zero.get());
        EXPECT_NE(first.get(), other.get());
        EXPECT_EQ(dynamic_cast<ConfigManager*>(first.get())->GetUseCount(), 2);
        EXPECT_EQ(first.get()->GetConfigID(), 3);
        first.get()->Set(eParamID_RegisterSave, 9u);
        EXPECT_EQ(second.get()->Get(eParamID_RegisterSave), 9u);
    }
    Connection again("local:configid=3");
    EXPECT_EQ(again.get()->Get(eParamID_RegisterSave), 1u) << "a fresh store";
}

TEST(Connector, UrisThatItRefuses)
{
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    const char* const kFailed = "ConfigFactoryImpl::Connect - _network_factory->Connect() failed\n";
    for (const char* uri :
         {"tcp://127.0.0.1:1", "udp://127.0.0.1:1/caching=true", "tcp:local:", "local:multicast:"})
        EXPECT_THAT(StderrOf([&] { EXPECT_EQ(connector->Connect(uri), nullptr) << uri; }),
                    HasSubstr(kFailed));
    for (const char* uri : {"socket://127.0.0.1:43110/caching=true", "", "LOCAL:"})
        EXPECT_EQ(StderrOf([&] { EXPECT_EQ(connector->Connect(uri), nullptr) << uri; }), "");
    connector->Disconnect(nullptr);
}

TEST(Connector, NumberOfAUri)
{
    LocalConfigFactory factory;
    struct Row {
        const char* uri;
        eConfigID_t id;
    };
    for (const Row& row : {Row{"local:", 0}, Row{"local:configid=3", 3}, Row{"local:configid=-1", -1},
                           Row{"local:configid=", 0}, Row{"local:configid=x", 0},
                           Row{"local:/configid=12abc", 12}, Row{"local:configid=99999999999", INT32_MAX},
                           Row{"local:configid=-99999999999999999999", INT32_MIN}})
        EXPECT_EQ(factory.GetConfigID(row.uri), row.id) << row.uri;
}

TEST(Connector, AStoreOfAnotherFactoryIsNotTracked)
{
    LocalConfigFactory factory;
    TestStore foreign(5);
    foreign->IncrementUseCount();
    const char* const kMessage = "LocalConfigFactory::Disconnect - This instance not tracking configID 5\n";
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(factory.Disconnect(&*foreign)); }), kMessage);

    Config* own = nullptr;
    StderrOf([&] { own = factory.Connect("local:configid=5"); });
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(factory.Disconnect(&*foreign)); }), kMessage)
        << "the same number only";
    EXPECT_EQ(foreign->GetUseCount(), 1);
    EXPECT_TRUE(factory.Disconnect(own));
    EXPECT_FALSE(factory.Disconnect(nullptr));
}

TEST(Connector, ThreadsThatConnectAtOnceGetOneStore)
{
    CreateDescriptors();
    LocalConfigFactory factory;
    std::vector<Config*> configs(8);
    std::vector<std::thread> threads;
    StderrOf([&] {
        for (Config*& config : configs)
            threads.emplace_back([&] { config = factory.Connect("local:configid=77"); });
        for (std::thread& thread : threads) thread.join();
    });
    for (Config* config : configs) EXPECT_EQ(config, configs[0]);
    for (Config* config : configs) EXPECT_TRUE(factory.Disconnect(config));
}

TEST(Connector, ANewInstanceDoesNotKnowTheStoresOfTheOld)
{
    ConfigFactory* const before = ConfigFactoryImpl::GetInstance();
    EXPECT_EQ(ConfigFactoryImpl::GetInstance(), before);
    auto* store = static_cast<Config*>(nullptr);
    StderrOf([&] {
        CreateDescriptors();
        store = before->Connect("local:configid=9");
    });
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
    EXPECT_EQ(GetConfigURI("socket"), "socket://127.0.0.1:43110/caching=true");
    EXPECT_EQ(GetConfigURI("udp"), "udp://127.0.0.1:43110");
    EXPECT_EQ(GetConfigURI("tcp"), "tcp://127.0.0.1:43110");
    EXPECT_EQ(GetEventsURI("socket"), "socket://127.0.0.1:43110");
    EXPECT_EQ(GetEventsURI("udp"), "multicast://127.0.0.1:63110");
    EXPECT_EQ(GetEventsURI("tcp"), "tcp://127.0.0.1:43110");
    EXPECT_EQ(GetConfigURI("TCP"), "INVALID_URI");
    EXPECT_EQ(GetEventsURI(""), "INVALID_URI");
}

TEST(Uri, Parse)
{
    struct Row {
        std::string text;
        int found;  // 3: accepted
        const char *scheme, *address, *port;
        const char* reason;
    };
    const std::string longest(99, 'a'), tooLong(100, 'a');
    const Row rows[] = {
        {"tcp://127.0.0.1:43110", 3, "tcp", "127.0.0.1", "43110", "the usual form"},
        {"tcp://127.0.0.1:43110/caching=true", 3, "tcp", "127.0.0.1", "43110", "what follows is ignored"},
        {" a \t b\nc ", 3, "a", "b", "c", "any blank separates"},
        {"tcp://" + longest + ":1", 3, "tcp", longest.c_str(), "1", "the longest part"},
        {"udp://127.0.0.1", 2, "", "", "", "no port"},
        {"", 0, "", "", "", "nothing"},
        {"://", 0, "", "", "", "separators alone"},
        {"tcp://" + tooLong + ":1", 1, "", "", "", "a part that is too long, after one that fits"},
        {std::string(1024, ' ') + "a b c", 0, "", "", "", "a text that is too long"},
        {std::string("a b\0 c", 6), 2, "", "", "", "the text ends at a NUL"},
    };
    for (const Row& row : rows) {
        url parsed{"old", "old", "old"};
        std::string text = row.text;
        bool ok = false;
        const std::string message = StderrOf([&] { ok = parsed.parse(text); });
        EXPECT_EQ(ok, row.found == 3) << row.reason;
        EXPECT_EQ(parsed.scheme, ok ? row.scheme : "old") << row.reason;
        EXPECT_EQ(parsed.address, ok ? row.address : "old") << row.reason;
        EXPECT_EQ(parsed.port, ok ? row.port : "old") << row.reason;
        EXPECT_EQ(
            message,
            ok ? "" : "url::parse - unable to parse url, found " + std::to_string(row.found) + " matches\n")
            << row.reason;
    }
}

}  // namespace
