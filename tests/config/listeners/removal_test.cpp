// A listener may be deleted once RemoveConfigEventListener has returned, whatever it was registered with.
#include "config/listeners/listener_list.h"

#include <gmock/gmock.h>

#include <optional>
#include <string>

#include "config/access/client/cache/config_cache.h"
#include "support/gate.h"
#include "support/recording_listener.h"
#include "support/test_server.h"

namespace {

/// "store", "cache" or the scheme of a network client.
class Removal : public testing::TestWithParam<std::string> {
  protected:
    Removal()
    {
        if (GetParam() == "store") {
            m_config = m_store.get();
        } else if (GetParam() == "cache") {
            m_store->AddConfigEventListener(&m_cache.emplace(m_store.get()));
            m_config = &*m_cache;
        } else {
            m_server.emplace(GetParam() == "tcp" ? SOCK_STREAM : SOCK_DGRAM);
            m_config = m_client.emplace(m_server->Uri(GetParam().c_str(), kConfig)).get();
        }
    }
    ~Removal() override
    {
        if (m_cache) m_store->RemoveConfigEventListener(&*m_cache);
    }

    static constexpr eConfigID_t kConfig = 71;

    LocalStore m_store{kConfig};
    std::optional<TestServer> m_server;
    std::optional<Connected> m_client;
    std::optional<ConfigCache> m_cache;
    Config* m_config = nullptr;
};

TEST_P(Removal, WaitsForTheCallbackOfAnotherThread)
{
    Gate gate;
    RecordingListener listener([&] { gate.Pass(); });
    ASSERT_TRUE(m_config->AddConfigEventListener(&listener));
    {
        // Over UDP nothing tells when the listener has joined, so there are changes until one arrives.
        const std::jthread writer([&] {
            unsigned int value = 0;
            EXPECT_TRUE(Eventually([&] {
                m_store->Set(eParamID_RegisterSave, value = value % 20 + 1);
                return gate.IsReached();
            }));
        });
        EXPECT_TRUE(gate.KeepsWaiting([&] { m_config->RemoveConfigEventListener(&listener); }));
    }
    const size_t heard = listener.Heard().size();
    m_store->Set(eParamID_ReelName, std::string("unheard"));
    EXPECT_EQ(listener.Heard().size(), heard);
}
INSTANTIATE_TEST_SUITE_P(, Removal, testing::Values("store", "cache", "tcp", "udp"),
                         [](const auto& row) { return row.param; });

TEST(ListenerList, AListenerThatWritesIntoDataDoesNotChangeWhatOthersHear)
{
    struct Scribbler : RecordingListener {
        bool DataChanged(eParam_t, std::string& data, timeval) override
        {
            data[0] = '#';
            return true;
        }
    } scribbler;
    RecordingListener listener;
    LocalStore store(72);
    store->AddConfigEventListener(&scribbler);
    store->AddConfigEventListener(&listener);
    std::string data = "as it is";
    store->SetData(eParamID_TestData, data);
    EXPECT_THAT(listener.Heard(), testing::Contains(testing::EndsWith("=as it is")));
    store->RemoveConfigEventListener(&scribbler);
    store->RemoveConfigEventListener(&listener);
}

}  // namespace
