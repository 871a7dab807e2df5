#include "config/access/client/cache/config_cache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "config/descriptors/integer_descriptor.h"
#include "support/failing_new.h"
#include "support/network_events.h"
#include "support/recording_listener.h"
#include "support/store.h"

using testing::Contains, testing::ElementsAre;

namespace {

constexpr timeval kTime{1'700'000'000, 123'456};
constexpr eParam_t kPlain{0x01000001}, kVolatile{0x01000002}, kUnknown{0x01000003};
const char* const kSuppressed =
    "ConfigCache::Set(uint32_t) - non-volatile param, new value is the same as the cached value, suppressing "
    "Set operation\n";

/// What a cache wraps: always the same value, counted calls, and a hook for what happens during a call.
class ScriptedConfig : public Config, public vexa::Connection {
  public:
    using Config::Set;
    using Config::SetData;
    using vexa::Connection::SetReachable;
    using vexa::Connection::TellEventsMissing;
    ScriptedConfig() { m_volatile.AddClassName("volatile"); }
    unsigned int Get(eParam_t) override { return Called(reads) ? 5 : 0; }
    bool Get(eParam_t, unsigned int&) override { return false; }
    bool Get(eParam_t, std::string& value) override { return Called(reads) && (value = "5", true); }
    bool GetData(eParam_t id, std::string& data) override { return Get(id, data); }
    bool Set(eParam_t, unsigned int, timeval) override { return Called(writes); }
    bool Set(eParam_t, std::string, timeval) override { return Called(writes); }
    bool SetData(eParam_t, std::string&, timeval) override { return Called(writes); }
    eConfigID_t GetConfigID() override { return 0; }
    timeval GetLastConfigUpdate() override { return {}; }
    ParamDescriptor* GetParamDescriptor(eParam_t id) override
    {
        ++descriptorsAsked;
        return id == kUnknown ? nullptr : id == kVolatile ? &m_volatile : &m_plain;
    }
    ParamDescriptor* GetParamDescriptor(std::string) override { return nullptr; }
    std::list<eParam_t> GetParamIDs() override { return {}; }

    bool works = true, confirms = true;
    int reads = 0, writes = 0, descriptorsAsked = 0;
    std::function<void()> during;

  private:
    bool Called(int& counter)
    {
        ++counter;
        if (during) std::exchange(during, nullptr)();
        vexa::NoteAnswer(&counter == &writes && !confirms ? vexa::Answer::kNone : vexa::Answer::kGiven);
        return works;
    }

    ParamDescriptor m_plain, m_volatile;
};

struct ConfigCacheTest : testing::Test {
    /// The number, the text and the data that the cache tells.
    std::string All(eParam_t id)
    {
        std::string text = "?", data = "?";
        cache.Get(id, text);
        cache.GetData(id, data);
        return std::to_string(cache.Get(id)) + text + data;
    }
    void Event(eParam_t id, unsigned int value)
    {
        std::string text = value == 0 ? "" : std::to_string(value);
        cache.ParamChanged(id, value, kTime);
        cache.ParamChanged(id, text, kTime);
        cache.DataChanged(id, text, kTime);
    }

    ScriptedConfig wrapped;
    ConfigCache cache{&wrapped};
};

TEST_F(ConfigCacheTest, FetchesOncePerKindAndVolatileValuesEachTime)
{
    wrapped.works = false;
    EXPECT_EQ(All(kPlain), "0??");
    wrapped.works = true;
    EXPECT_EQ(All(kPlain), "055") << "for a number, a failure looks like a 0 and is kept";
    EXPECT_EQ(StderrOf([&] { EXPECT_TRUE(cache.Set(kPlain, 0u)); }), kSuppressed);
    EXPECT_EQ(All(kPlain), "055");
    EXPECT_EQ(wrapped.reads, 3 + 2);
    EXPECT_EQ(All(kVolatile) + All(kVolatile), "555555");
    EXPECT_EQ(wrapped.reads, 5 + 6);
    EXPECT_EQ(wrapped.descriptorsAsked, 2) << "once per parameter";
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(All(kUnknown) + All(kUnknown), "555555"); }),
              "IsVolatile: paramID: 01000003 has a NULL descriptor, please fix.\n");
}

TEST_F(ConfigCacheTest, SendsAWriteUnlessItChangesNothing)
{
    std::string bytes("\0\1", 2), others("\0\2", 2);
    struct {
        const char* reason;
        std::function<bool()> write;
        int sent;
        std::string printed;
    } const rows[] = {{"the same number", [&] { return cache.Set(kPlain, 9u); }, 1, kSuppressed},
                      {"a volatile number", [&] { return cache.Set(kVolatile, 9u); }, 2, ""},
                      {"a text", [&] { return cache.Set(kPlain, std::string("nine")); }, 2, ""},
                      {"the same bytes", [&] { return cache.SetData(kPlain, bytes); }, 1, ""},
                      {"bytes after a NUL", [&] { return cache.SetData(kPlain, others); }, 1, ""},
                      {"volatile bytes", [&] { return cache.SetData(kVolatile, bytes); }, 2, ""}};
    for (const auto& [reason, write, sent, printed] : rows) {
        SCOPED_TRACE(reason);
        wrapped.writes = 0;
        wrapped.works = false;
        EXPECT_FALSE(write()) << "a refused write is not remembered";
        wrapped.works = true;
        EXPECT_EQ(StderrOf([&, &write = write] { EXPECT_TRUE(write() && write()); }), printed);
        EXPECT_EQ(wrapped.writes, 1 + sent);
    }
    EXPECT_EQ(All(kPlain), "9nine" + others);
}

TEST_F(ConfigCacheTest, PassesOnTheEventsThatChangeSomething)
{
    RecordingListener listener;
    cache.AddConfigEventListener(&listener);
    for (const unsigned int value : {0u, 4u, 4u}) Event(kPlain, value);
    EXPECT_THAT(listener.Heard(), ElementsAre("int 01000001=4", "str 01000001=4", "data 01000001=4"))
        << "what is not known counts as 0 and empty";
    EXPECT_EQ(listener.LastTime().tv_usec, kTime.tv_usec);
    EXPECT_EQ(All(kPlain), "444");
    EXPECT_EQ(wrapped.reads, 0) << "events fill the cache";
    for (const unsigned int value : {0u, 4u, 4u}) Event(kVolatile, value);
    EXPECT_EQ(listener.Heard().size(), 3u + 9);
}

// The connection delivers on another thread, which must get past the cache while a call is under way.
TEST_F(ConfigCacheTest, AnEventDuringACallIsNewerThanItsValue)
{
    std::string bytes("other");
    const auto meanwhile = [&](unsigned int value) {
        wrapped.during = [this, value] { std::thread([this, value] { Event(kPlain, value); }).join(); };
    };
    const std::function<void()> calls[] = {
        [&] { cache.Get(kPlain); }, [&] { cache.Set(kPlain, 15u); },  // the store corrected it
        [&] { cache.Set(kPlain, std::string("other")); }, [&] { cache.SetData(kPlain, bytes); }};
    for (unsigned int value = 6; const auto& call : calls) {
        meanwhile(value);
        call();
        EXPECT_EQ(All(kPlain), std::string(3, static_cast<char>('0' + value++)));
    }
    EXPECT_TRUE(cache.Set(kPlain, 15u));
    EXPECT_EQ(All(kPlain), "1599") << "without an event the written value holds";
}

TEST_F(ConfigCacheTest, AWriteThatIsNotConfirmedLeavesTheValueUnknown)
{
    RecordingListener listener;
    cache.AddConfigEventListener(&listener);
    std::string bytes("9");
    Event(kPlain, 4);
    wrapped.confirms = false;
    EXPECT_TRUE(cache.Set(kPlain, 9u) && cache.Set(kPlain, std::string("9")) && cache.SetData(kPlain, bytes));
    EXPECT_EQ(All(kPlain), "555") << "the store refused them";
    EXPECT_EQ(wrapped.reads, 3);

    EXPECT_TRUE(cache.Set(kPlain, 0u));
    cache.ParamChanged(kPlain, 0u, kTime);
    EXPECT_EQ(cache.Get(kPlain), 0u);
    EXPECT_EQ(listener.Heard().back(), "int 01000001=0") << "not known before the event";
    wrapped.during = [&] { std::thread([&] { cache.ParamChanged(kPlain, 7u, kTime); }).join(); };
    EXPECT_TRUE(cache.Set(kPlain, 9u));
    EXPECT_EQ(cache.Get(kPlain), 7u) << "the event is news";
    EXPECT_EQ(wrapped.reads, 3);
}

TEST_F(ConfigCacheTest, WhenEventsMayBeMissingNothingIsKnown)
{
    RecordingConnectionListener told;
    cache.AddConnectionListener(&told);
    wrapped.AddConnectionListener(cache.Follower());
    const std::function<void()> losses[] = {[&] { wrapped.TellEventsMissing(); },
                                            [&] { wrapped.SetReachable(false); },
                                            [&] { wrapped.SetReachable(true); }};
    for (const auto& lose : losses) {
        Event(kPlain, 4);
        EXPECT_EQ(All(kPlain), "444");
        wrapped.during = lose;  // an answer may be older than the event that was lost
        EXPECT_EQ(cache.Get(kVolatile), 5u);
        EXPECT_EQ(All(kPlain), "555");
        wrapped.reads = 0;
        EXPECT_EQ(All(kPlain), "555");
        EXPECT_EQ(wrapped.reads, 0);
    }
    using enum vexa::ConnectionChange;
    EXPECT_THAT(told.Heard(), ElementsAre(kEventsMissing, kLost, kRestored));

    wrapped.SetReachable(false);
    EXPECT_FALSE(cache.IsReachable());
    wrapped.works = false;
    EXPECT_FALSE(cache.Set(kPlain, 0u)) << "the 0 of a failed fetch suppresses nothing";
    wrapped.RemoveConnectionListener(cache.Follower());
}

TEST_F(ConfigCacheTest, AnAnswerThatIsOlderThanALossIsNotKept)
{
    wrapped.AddConnectionListener(cache.Follower());
    wrapped.during = [&] { wrapped.TellEventsMissing(); };
    EXPECT_EQ(cache.Get(kPlain), 5u);
    EXPECT_EQ(cache.Get(kPlain), 5u);
    EXPECT_EQ(wrapped.reads, 2);
    wrapped.RemoveConnectionListener(cache.Follower());
}

TEST_F(ConfigCacheTest, AsksOnceWhetherAValueIsStillTheStores)
{
    std::string nine = "9", five = "5";
    const std::function<bool()> ways[] = {[&] { return cache.Set(kPlain, 5u); },
                                          [&] { return cache.SetData(kPlain, five); }};
    for (const auto& set : ways) {
        EXPECT_TRUE(cache.Set(kPlain, 9u) && cache.SetData(kPlain, nine));
        Event(kPlain, 5);
        wrapped.reads = wrapped.writes = 0;
        wrapped.during = [&] { EXPECT_TRUE(cache.Set(kPlain, 9u) && cache.SetData(kPlain, nine)); };
        StderrOf([&] { EXPECT_TRUE(set()); });
        Event(kPlain, 5);
        StderrOf([&] { EXPECT_TRUE(set() && set() && set()); });
        EXPECT_EQ(wrapped.reads, 2) << "the first answer was older than another write";
        EXPECT_EQ(wrapped.writes, 2);
    }
}

TEST_F(ConfigCacheTest, WithoutMemoryNoOldValueStays)
{
    RecordingConnectionListener told;
    cache.AddConnectionListener(&told);
    std::string text, read;
    const std::function<std::string()> number = [&] { return std::to_string(cache.Get(kPlain)); };
    const std::function<std::string()> readText = [&] { return cache.Get(kPlain, read) ? read : "?"; };
    const std::function<std::string()> readData = [&] { return cache.GetData(kPlain, read) ? read : "?"; };
    const struct {
        std::function<void()> change;
        const std::function<std::string()>& tells;
        bool isWrite;
    } rows[] = {{[&] { cache.ParamChanged(kPlain, 7u, kTime); }, number, false},
                {[&] { cache.ParamChanged(kPlain, std::move(text), kTime); }, readText, false},
                {[&] { cache.DataChanged(kPlain, text, kTime); }, readData, false},
                {[&] { cache.Set(kPlain, 7u, kTime); }, number, true},
                {[&] { cache.Set(kPlain, std::move(text), kTime); }, readText, true},
                {[&] { cache.SetData(kPlain, text, kTime); }, readData, true}};
    const auto prepare = [&](int) {
        Event(kPlain, 4);
        text.assign(100, 'x');
        wrapped.writes = 0;
    };
    int failures = 0;
    StderrOf([&] {
        for (const auto& row : rows) {
            const auto check = [&] {
                if (row.isWrite && wrapped.writes == 0) return;
                EXPECT_NE(row.tells(), "4");
            };
            failures += WithEachAllocationFailing(prepare, row.change, check);
        }
        EXPECT_EQ(WithEachAllocationFailing([&] { cache.Get(kUnknown); }), 2);
    });
    EXPECT_GE(failures, 8);
    EXPECT_THAT(told.Heard(), Contains(vexa::ConnectionChange::kEventsMissing));
}

TEST_F(ConfigCacheTest, BindingTakesTheKeyOver)
{
    ConfigCache other(&wrapped);
    EXPECT_TRUE(cache.bind(other));
    EXPECT_EQ(cache.bindingKey().tv_sec, other.bindingKey().tv_sec);
    EXPECT_EQ(cache.bindingKey().tv_usec, other.bindingKey().tv_usec);
}

TEST(ConfigCache, TheEventOfAnOldWriteDoesNotKeepANewOneFromTheStore)
{
    TestStore store;  // its events come late
    ConfigCache cache(&*store);
    for (const unsigned int value : {3u, 4u, 3u, 4u}) cache.Set(eParamID_ClipNumber, value);
    cache.ParamChanged(eParamID_ClipNumber, 3u, kTime);
    EXPECT_TRUE(cache.Set(eParamID_ClipNumber, 3u));
    EXPECT_EQ(store->Get(eParamID_ClipNumber), 3u);
    std::string old = "old", last = "last", data;
    for (std::string* const value : {&old, &last}) cache.SetData(eParamID_TestData, *value);
    cache.DataChanged(eParamID_TestData, old, kTime);
    EXPECT_TRUE(cache.SetData(eParamID_TestData, old));
    EXPECT_TRUE(store->GetData(eParamID_TestData, data));
    EXPECT_EQ(data, "old");

    cache.ParamChanged(eParamID_ClipNumber, 2u, kTime);  // as another client has written it
    store->Set(eParamID_ClipNumber, 2u);
    EXPECT_EQ(StderrOf([&] { EXPECT_TRUE(cache.Set(eParamID_ClipNumber, 2u)); }), kSuppressed);
}

TEST(ConfigCache, AroundAStore)
{
    TestStore store;
    ConfigCache cache(&*store);
    store->AddConfigEventListener(&cache);
    const auto highest =
        dynamic_cast<IntegerDescriptor*>(store->GetParamDescriptor(eParamID_Take))->GetMaxValue();
    EXPECT_TRUE(cache.Set(eParamID_Take, highest + 5));
    EXPECT_EQ(cache.Get(eParamID_Take), highest) << "as the store corrected it";

    RecordingListener once([&] {
        cache.RemoveConfigEventListener(&once);
        EXPECT_TRUE(cache.Set(eParamID_Take, 4u)) << "from a callback";
    });
    cache.AddConfigEventListener(&once);
    store->Set(eParamID_Take, 3u);
    EXPECT_EQ(once.Heard().size(), 1u);
    EXPECT_EQ(cache.Get(eParamID_Take), 4u);

    RecordingListener passedOn;
    for (int n = 0; n < 2; ++n) EXPECT_TRUE(cache.AddConfigEventListener(eParamID_Take, &passedOn));
    EXPECT_TRUE(cache.RemoveConfigEventListener(&passedOn));
    store->Set(eParamID_Take, 6u);
    EXPECT_TRUE(passedOn.Heard().empty()) << "removed from the store, too";
    store->RemoveConfigEventListener(&cache);
}

}  // namespace
