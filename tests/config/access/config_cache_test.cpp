#include "config/access/config_cache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "config/descriptors/integer_descriptor.h"
#include "support/store.h"

using testing::ElementsAre;

namespace {

constexpr timeval kTime{1'700'000'000, 123'456};
constexpr eParam_t kPlain{0x01000001}, kVolatile{0x01000002}, kUnknown{0x01000003};
const char* const kSuppressed =
    "ConfigCache::Set(uint32_t) - non-volatile param, new value is the same as the cached value, suppressing "
    "Set operation\n";

/// What a cache wraps: one value per kind, counted calls, and a hook for what happens during a call.
class ScriptedConfig : public Config {
  public:
    using Config::Set;
    using Config::SetData;
    ScriptedConfig() { m_volatile.AddClassName("volatile"); }

    unsigned int Get(eParam_t) override { return Called(reads) ? number : 0; }
    bool Get(eParam_t id, unsigned int& value) override { return (value = Get(id)) != 0; }
    bool Get(eParam_t, std::string& value) override { return Answer(value); }
    bool GetData(eParam_t, std::string& data) override { return Answer(data); }
    bool Set(eParam_t, unsigned int, timeval) override { return Called(writes); }
    bool Set(eParam_t, std::string, timeval) override { return Called(writes); }
    bool SetData(eParam_t, std::string&, timeval) override { return Called(writes); }
    eConfigID_t GetConfigID() override { return 5; }
    timeval GetLastConfigUpdate() override { return kTime; }
    ParamDescriptor* GetParamDescriptor(eParam_t id) override
    {
        ++descriptorsAsked;
        return id == kUnknown ? nullptr : id == kVolatile ? &m_volatile : &m_plain;
    }
    ParamDescriptor* GetParamDescriptor(std::string) override { return &m_plain; }
    std::list<eParam_t> GetParamIDs() override { return {kPlain, kVolatile}; }

    unsigned int number = 5;
    std::string text = "five";
    bool works = true;
    int reads = 0, writes = 0, descriptorsAsked = 0;
    std::function<void()> during;

  private:
    bool Called(int& counter)
    {
        ++counter;
        if (during) std::exchange(during, nullptr)();
        return works;
    }
    bool Answer(std::string& value)
    {
        const std::string answer = text;
        if (!Called(reads)) return false;
        value = answer;
        return true;
    }

    ParamDescriptor m_plain, m_volatile;
};

struct ConfigCacheTest : testing::Test {
    ConfigCacheTest() { cache.AddConfigEventListener(&heard); }

    std::string Text(eParam_t id)
    {
        std::string text = "untouched";
        cache.Get(id, text);
        return text;
    }
    std::string Data(eParam_t id)
    {
        std::string data = "untouched";
        cache.GetData(id, data);
        return data;
    }
    void DataEvent(eParam_t id, std::string data) { cache.DataChanged(id, data, kTime); }

    ScriptedConfig wrapped;
    ConfigCache cache{&wrapped};
    RecordingListener heard;
    std::string bytes = std::string("\0\1", 2), others = std::string("\0\2", 2);
};

TEST_F(ConfigCacheTest, FetchesOncePerKindAndVolatileValuesEachTime)
{
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(cache.Get(kPlain), 5u);
        EXPECT_EQ(Text(kPlain) + Data(kPlain), "fivefive");
    }
    EXPECT_EQ(wrapped.reads, 3);
    unsigned int value = 7;
    EXPECT_TRUE(cache.Get(kPlain, value));
    EXPECT_EQ(value, 5u);

    for (int n = 0; n < 3; ++n) EXPECT_EQ(std::to_string(cache.Get(kVolatile)) + Text(kVolatile), "5five");
    EXPECT_EQ(Data(kVolatile), "five");
    EXPECT_EQ(wrapped.reads, 3 + 7);
    EXPECT_EQ(wrapped.descriptorsAsked, 2) << "once per parameter";
}

TEST_F(ConfigCacheTest, FailedFetchesAreRememberedForNumbersOnly)
{
    wrapped.works = false;
    EXPECT_EQ(Text(kPlain) + Data(kPlain), "untoucheduntouched");
    unsigned int value = 7;
    EXPECT_FALSE(cache.Get(kPlain, value));
    EXPECT_EQ(value, 0u);
    wrapped.works = true;
    EXPECT_EQ(Text(kPlain) + Data(kPlain), "fivefive");
    EXPECT_EQ(cache.Get(kPlain), 0u) << "a failure looks like a 0";
    EXPECT_EQ(StderrOf([&] { EXPECT_TRUE(cache.Set(kPlain, 0u)); }), kSuppressed);
    EXPECT_EQ(wrapped.writes, 0);
}

TEST_F(ConfigCacheTest, SendsAWriteUnlessItChangesNothing)
{
    struct Row {
        const char* reason;
        std::function<bool(eParam_t)> write;
        eParam_t id;
        int sent;
        std::string printed;
    };
    const auto number = [&](eParam_t id) { return cache.Set(id, 9u); };
    const auto text = [&](eParam_t id) { return cache.Set(id, std::string("nine")); };
    const auto data = [&](eParam_t id) { return cache.SetData(id, bytes); };
    for (const Row& row :
         {Row{"the same number", number, kPlain, 1, kSuppressed},
          Row{"a volatile number", number, kVolatile, 2, ""}, Row{"a text", text, kPlain, 2, ""},
          Row{"the same bytes", data, kPlain, 1, ""}, Row{"volatile bytes", data, kVolatile, 2, ""}}) {
        const int before = wrapped.writes;
        wrapped.works = false;
        EXPECT_FALSE(row.write(row.id)) << row.reason << ": a refused write is not remembered";
        wrapped.works = true;
        EXPECT_EQ(StderrOf([&] {
                      EXPECT_TRUE(row.write(row.id)) << row.reason;
                      EXPECT_TRUE(row.write(row.id)) << row.reason;
                  }),
                  row.printed)
            << row.reason;
        EXPECT_EQ(wrapped.writes - before, 1 + row.sent) << row.reason;
    }
    EXPECT_EQ(std::to_string(cache.Get(kPlain)) + Text(kPlain), "9nine");
    EXPECT_EQ(Data(kPlain), bytes);
    EXPECT_EQ(Text(kVolatile), "five");
    EXPECT_TRUE(cache.SetData(kPlain, others)) << "other bytes behind a NUL";
    EXPECT_EQ(Data(kPlain), others);
}

TEST_F(ConfigCacheTest, PassesOnTheEventsThatChangeSomething)
{
    for (const eParam_t id : {kPlain, kVolatile}) {
        for (const unsigned int value : {0u, 4u, 4u}) cache.ParamChanged(id, value, kTime);
        for (const char* const text : {"", "a", "a"}) cache.ParamChanged(id, std::string(text), kTime);
        for (const char* const text : {"", "b", "b"}) DataEvent(id, text);
    }
    EXPECT_THAT(
        heard.Heard(),
        ElementsAre("int 01000001=4", "str 01000001=a", "data 01000001=b",  // nothing counts as 0
                    "int 01000002=0", "int 01000002=4", "int 01000002=4", "str 01000002=", "str 01000002=a",
                    "str 01000002=a", "data 01000002=", "data 01000002=b", "data 01000002=b"));
    EXPECT_EQ(heard.LastTime().tv_usec, kTime.tv_usec);
    EXPECT_EQ(std::to_string(cache.Get(kPlain)) + Text(kPlain) + Data(kPlain), "4ab");
    EXPECT_EQ(wrapped.reads, 0) << "events fill the cache";
    cache.ParamChanged(ConfigEvent{.paramID = kPlain, .paramType = eCParam_EnumValue, .value = 6});
    EXPECT_EQ(cache.Get(kPlain), 4u);
}

// The connection delivers on another thread, which must get past the cache while a call is under way.
TEST_F(ConfigCacheTest, AnEventDuringACallIsNewerThanItsValue)
{
    const auto meanwhile = [&](unsigned int value) {
        wrapped.during = [this, value] {
            std::thread([this, value] {
                cache.ParamChanged(kPlain, value, kTime);
                cache.ParamChanged(kPlain, std::to_string(value), kTime);
                DataEvent(kPlain, std::to_string(value));
            }).join();
        };
    };
    const auto known = [&] { return std::to_string(cache.Get(kPlain)) + Text(kPlain) + Data(kPlain); };

    meanwhile(6);
    cache.Get(kPlain);
    EXPECT_EQ(known(), "666");
    meanwhile(10);
    EXPECT_TRUE(cache.Set(kPlain, 15u)) << "the store corrected it";
    EXPECT_EQ(known(), "101010");
    meanwhile(11);
    EXPECT_TRUE(cache.Set(kPlain, std::string("other")));
    EXPECT_EQ(known(), "111111");
    meanwhile(12);
    EXPECT_TRUE(cache.SetData(kPlain, others));
    EXPECT_EQ(known(), "121212");
    EXPECT_TRUE(cache.Set(kPlain, 15u));
    EXPECT_EQ(cache.Get(kPlain), 15u) << "without an event the written value holds";

    ConfigCache fresh(&wrapped);
    wrapped.during = [&] { fresh.Set(kPlain, std::string("written")); };
    std::string text;
    fresh.Get(kPlain, text);
    fresh.Get(kPlain, text);
    EXPECT_EQ(text, "written") << "nor does a read undo a write";
}

TEST_F(ConfigCacheTest, ReportsAMissingDescriptorOnce)
{
    const char* const kMessage = "IsVolatile: paramID: 01000003 has a NULL descriptor, please fix.\n";
    EXPECT_EQ(StderrOf([&] {
                  EXPECT_FALSE(cache.IsVolatile(kUnknown));
                  EXPECT_FALSE(cache.IsVolatile(kUnknown));
                  EXPECT_EQ(cache.Get(kUnknown), 5u);
              }),
              kMessage);
    EXPECT_TRUE(cache.IsVolatile(kVolatile));
}

TEST_F(ConfigCacheTest, BindingTakesTheKeyOver)
{
    ConfigCache other(&wrapped);
    const timeval key = other.bindingKey();
    EXPECT_LE(time(nullptr) - key.tv_sec, 60);
    EXPECT_TRUE(cache.bind(other));
    EXPECT_EQ(cache.bindingKey().tv_sec, key.tv_sec);
    EXPECT_EQ(cache.bindingKey().tv_usec, key.tv_usec);
}

TEST_F(ConfigCacheTest, PassesTheRestToTheWrappedConfiguration)
{
    EXPECT_EQ(cache.GetConfigID(), 5);
    EXPECT_EQ(cache.GetLastConfigUpdate().tv_sec, kTime.tv_sec);
    EXPECT_THAT(cache.GetParamIDs(), ElementsAre(kPlain, kVolatile));
    EXPECT_NE(cache.GetParamDescriptor("eParamID_Any"), nullptr);
    EXPECT_FALSE(cache.AddConfigEventListener(kPlain, &heard)) << "refused there";
    EXPECT_FALSE(cache.AddConfigEventListener(nullptr));
}

TEST(ConfigCache, FollowsAStoreThatCorrectsAndAListenerThatWritesBack)
{
    TestStore store;
    ConfigCache cache(&*store);
    store->AddConfigEventListener(&cache);
    auto* const descriptor = dynamic_cast<IntegerDescriptor*>(store->GetParamDescriptor(eParamID_Take));
    const unsigned int highest = descriptor->GetMaxValue();

    struct WriteBack : RecordingListener {
        explicit WriteBack(ConfigCache& c) : m_cache(c) {}
        using RecordingListener::ParamChanged;
        bool ParamChanged(eParam_t id, unsigned int value, timeval time) override
        {
            RecordingListener::ParamChanged(id, value, time);
            m_cache.RemoveConfigEventListener(this);
            return m_cache.Set(id, 4u) && m_cache.Get(id) == 4u;
        }
        ConfigCache& m_cache;
    } once(cache);

    EXPECT_TRUE(cache.Set(eParamID_Take, highest + 5));
    EXPECT_EQ(cache.Get(eParamID_Take), highest);
    cache.AddConfigEventListener(&once);
    store->Set(eParamID_Take, 3u);
    EXPECT_EQ(once.Heard().size(), 1u);
    EXPECT_EQ(cache.Get(eParamID_Take), 4u);
    store->RemoveConfigEventListener(&cache);
}

TEST(ConfigCache, ARemovedListenerIsGoneEverywhere)
{
    TestStore store;
    ConfigCache cache(&*store);
    store->AddConfigEventListener(&cache);
    std::atomic<bool> stop = false;
    std::jthread writer([&] {
        for (unsigned int n = 0; !stop; ++n) store->Set(eParamID_Camera, n % 3);
    });
    for (int n = 0; n < 200; ++n) {
        auto listener = std::make_unique<RecordingListener>();
        cache.AddConfigEventListener(listener.get());
        cache.AddConfigEventListener(listener.get());
        EXPECT_TRUE(cache.AddConfigEventListener(eParamID_Take, listener.get()));
        EXPECT_TRUE(cache.AddConfigEventListener(eParamID_Camera, listener.get()));
        EXPECT_TRUE(cache.RemoveConfigEventListener(listener.get()));
        const size_t before = listener->Heard().size();
        std::this_thread::yield();
        EXPECT_EQ(listener->Heard().size(), before);
    }
    RecordingListener never;
    EXPECT_TRUE(cache.RemoveConfigEventListener(&never));
    stop = true;
    writer.join();
    store->RemoveConfigEventListener(&cache);
}

}  // namespace
