#include "config/manager/config_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/string_descriptor.h"
#include "config/values/config_value.h"
#include "support/failing_new.h"
#include "support/gate.h"
#include "support/store.h"

using testing::ElementsAre, testing::IsEmpty;
using vexa::config::IntegerQueue, vexa::config::StringQueue;

namespace {

constexpr timeval kTime{1'700'000'000, 123'456};
constexpr eParam_t kUnknown{0x01020304};

/// Does what a test says with the queue.
class ScriptedPrecondition : public vexa::config::UpdatePrecondition {
  public:
    bool IsUpdateValid(Config*, IntegerQueue& queue) override
    {
        ++asked;
        return !onInteger || onInteger(queue);
    }
    bool IsUpdateValid(Config*, StringQueue& queue) override { return !onString || onString(queue); }
    bool IsUpdateValid(Config*, eParam_t, Serializable&) override { return true; }

    std::function<bool(IntegerQueue&)> onInteger;
    std::function<bool(StringQueue&)> onString;
    int asked = 0;
};

ScriptedPrecondition& AddPrecondition(TestStore& store)
{
    auto* const precondition = new ScriptedPrecondition;
    StderrOf([&] { store->AddUpdatePrecondition(precondition); });
    return *precondition;
}

TEST(ConfigManager, HoldsEveryFactoryDefaultAfterInit)
{
    TestStore store(7);
    EXPECT_EQ(store->GetConfigID(), 7);
    for (const eParam_t id : store->GetParamIDs()) {
        ParamDescriptor* const descriptor = store->GetParamDescriptor(id);
        auto* const value = dynamic_cast<ConfigValue*>(store->GetSerializable(id));
        ASSERT_TRUE(descriptor && value) << id;
        EXPECT_EQ(value->GetConfigID(), 7);
        auto* const integer = dynamic_cast<IntegerDescriptor*>(descriptor);
        auto* const string = dynamic_cast<StringDescriptor*>(descriptor);
        std::string text;
        EXPECT_TRUE(integer ? store->Get(id) == integer->GetFactoryDefault()
                            : string && store->Get(id, text) && text == string->GetFactoryDefault())
            << descriptor->GetParamIDName();
    }
}

TEST(ConfigManager, InitSaysWhatItDoes)
{
    CreateDescriptors();
    ConfigManager store(0);
    EXPECT_THAT(StderrOf([&] { store.Init(); }),
                testing::MatchesRegex("ConfigManager::Init - calling AddDefaultPreconditions!\n"
                                      "AddUpdatePrecondition: adding precondition\\(0x[0-9a-f]+\\)\n"
                                      "ConfigManager::InitDefaultConfig\\(\\) - end\n"));
}

TEST(ConfigManager, StoresCorrectsAndTellsWithTheCallersTime)
{
    TestStore store;
    std::string bytes("a\0b", 3), text = "x", read;
    EXPECT_TRUE(store->Set(eParamID_RegisterSave, 7u, kTime));
    EXPECT_TRUE(store->Set(eParamID_RegisterSave, 500u, kTime));
    EXPECT_EQ(store.listener.LastTime().tv_usec, kTime.tv_usec);
    EXPECT_TRUE(store->SetData(eParamID_TestData, bytes, kTime));
    EXPECT_TRUE(store->GetData(eParamID_TestData, read));
    EXPECT_EQ(read, bytes);
    EXPECT_FALSE(store->SetData(eParamID_RegisterSave, text, kTime)) << "told, but an integer holds no data";
    EXPECT_EQ(store->Get(eParamID_RegisterSave), 20u);
    EXPECT_THAT(store.listener.Heard(), ElementsAre("int 5c010000=7", "int 5c010000=20",
                                                    "data 7d04000a=" + bytes, "data 5c010000=x"));
    EXPECT_EQ(store->GetLastConfigUpdate().tv_sec, 0) << "the store keeps none for its clients";
}

TEST(ConfigManager, MessagesForWhatDoesNotExist)
{
    TestStore store;
    std::string text = "untouched";
    unsigned int number = 5;
    const std::pair<std::function<bool()>, const char*> kRows[] = {
        {[&] { return store->Set(kUnknown, 1u); },
         "GetParamDescriptor Error in config_manager at line 109\n"},
        {[&] { return store->Set(kUnknown, text); },
         "GetParamDescriptor Error in config_manager at line 206\n"},
        {[&] { return store->SetData(kUnknown, text); },
         "GetParamDescriptor Error in config_manager at line 266\n"},
        {[&] { return store->SetConfigParam(kUnknown, 1u); },
         "ConfigManager::SetConfigParam() - configValue == NULL for paramID = 1020304\n"},
        {[&] { return store->SetConfigParam(kUnknown, text); },
         "ConfigManager::SetConfigParam() - configValue == NULL for paramID = 01020304\n"},
        {[&] { return store->GetConfigParam(kUnknown, text); },
         "ConfigManager::GetConfigParam() - configValue == NULL for paramID = 1020304\n"},
        {[&] { return store->GetConfigParam(eParamID_Take, text); },
         "ConfigManager::GetConfigParam - error - not a StringValue\n"},
        {[&] { return store->GetConfigParam(eParamID_CustomClipName, number); }, ""},
        {[&] { return store->SetConfigParam(eParamID_Take, text); }, ""},
        {[&] { return store->SetSerializable(eParamID_Take, nullptr); }, ""},
    };
    for (const auto& [call, message] : kRows)
        EXPECT_EQ(StderrOf([&, &call = call] { EXPECT_FALSE(call()); }), message);
    EXPECT_TRUE(text == "untouched" && number == 5);
    EXPECT_EQ(store->GetSerializable(kUnknown), nullptr);
    EXPECT_EQ(store->GetParamDescriptor(kUnknown), nullptr);
}

TEST(ConfigManager, OnlyTheStringFormMakesMissingValues)
{
    CreateDescriptors();
    ConfigManager store(0);  // not initialised: it holds nothing yet
    std::string text;
    EXPECT_NE(StderrOf([&] { EXPECT_FALSE(store.SetConfigParam(eParamID_Take, 5u)); }), "");
    EXPECT_EQ(store.GetSerializable(eParamID_Take), nullptr);
    EXPECT_TRUE(store.SetConfigParam(eParamID_CustomClipName, std::string("made")));
    EXPECT_TRUE(store.Get(eParamID_CustomClipName, text));
    EXPECT_EQ(text, "made");

    ParamDescriptor bare;
    bare.SetParamID(kUnknown);
    g_paramDescriptors[kUnknown] = &bare;
    EXPECT_THAT(StderrOf([&] { store.InitDefaultConfig(); }),
                testing::StartsWith("ConfigManager::GetConfigValue - Clone() returned defaultValue == NULL, "
                                    "paramID = 0x1020304\n"
                                    "ConfigManager::InitDefaultConfig - GetConfigValue failed for paramid "
                                    "16909060!!!!\n"));
    g_paramDescriptors.erase(kUnknown);
}

// --- preconditions ---

TEST(ConfigManager, PreconditionsMayVetoCorrectAddAndDrop)
{
    TestStore store;
    ScriptedPrecondition& precondition = AddPrecondition(store);

    precondition.onInteger = [](IntegerQueue&) { return false; };
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(store->Set(eParamID_RegisterSave, 3u)); }),
              "ConfigManager::Set(uint32_t) - update precondition failed, returning false\n");

    precondition.onInteger = [](IntegerQueue&) -> bool { throw 1; };
    StderrOf([&] { EXPECT_FALSE(store->Set(eParamID_RegisterSave, 3u)); });

    precondition.onInteger = [](IntegerQueue& queue) {
        queue.clear();
        return true;
    };
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(store->Set(eParamID_RegisterSave, 3u)); }), "");
    EXPECT_EQ(store->Get(eParamID_RegisterSave), 1u);
    EXPECT_THAT(store.listener.Heard(), IsEmpty());

    precondition.onInteger = [](IntegerQueue& queue) {
        if (queue.front().second == 3) queue.push_back({eParamID_CustomTake, 12});
        if (queue.front().second == 3) queue.front().second = 4;
        return true;
    };
    EXPECT_TRUE(store->Set(eParamID_RegisterSave, 3u));
    EXPECT_EQ(store->Get(eParamID_RegisterSave), 4u);
    EXPECT_EQ(store->Get(eParamID_CustomTake), 12u);
}

TEST(ConfigManager, StringPreconditionsMayVetoAndAdd)
{
    TestStore store;
    ScriptedPrecondition& precondition = AddPrecondition(store);
    precondition.onString = [](StringQueue& queue) {
        if (queue.front().second == "A001") {
            queue.front().second = "changed";
            queue.push_back({eParamID_ReelName, "added"});
        }
        if (queue.front().second == "A002") queue.clear();
        return queue.empty() || queue.front().second != "A003";
    };
    EXPECT_TRUE(store->Set(eParamID_ReelName, std::string("A001")));
    EXPECT_TRUE(store->Set(eParamID_ReelName, std::string("A002")));
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(store->Set(eParamID_ReelName, std::string("A003"))); }),
              "ConfigManager::Set(std::string) - update precondition failed, returning false\n");
    EXPECT_THAT(store.listener.Heard(),
                ElementsAre("str 1101000a=A001", "str 1101000a=added", "str 1101000a=A002"));
}

TEST(ConfigManager, NoPreconditionIsAskedOnDoNotValidateNorForAnEmptyQueue)
{
    TestStore store;
    ScriptedPrecondition& first = AddPrecondition(store);
    ScriptedPrecondition& second = AddPrecondition(store);
    EXPECT_TRUE(store->Set(eParamID_MediaUpdated, 0xffffffffu));
    EXPECT_EQ(store->Get(eParamID_MediaUpdated), 0xffffffffu);
    EXPECT_EQ(first.asked, 0);

    first.onInteger = [](IntegerQueue& queue) {
        queue.pop_front();
        return true;
    };
    EXPECT_FALSE(store->Set(eParamID_RegisterSave, 3u));
    EXPECT_EQ(first.asked, 1);
    EXPECT_EQ(second.asked, 0);
}

TEST(ConfigManager, PreconditionsBelongToTheStoreUntilRemoved)
{
    auto removed = std::make_unique<ScriptedPrecondition>();
    {
        TestStore store;
        StderrOf([&] {
            EXPECT_FALSE(store->AddUpdatePrecondition(nullptr));
            store->AddUpdatePrecondition(removed.get());
            auto* const twice = new ScriptedPrecondition;
            store->AddUpdatePrecondition(twice);
            store->AddUpdatePrecondition(twice);  // still deleted once
        });
        EXPECT_TRUE(store->RemoveUpdatePrecondition(removed.get()));
        EXPECT_FALSE(store->RemoveUpdatePrecondition(removed.get()));
        store->Set(eParamID_RegisterSave, 3u);
    }
    EXPECT_EQ(removed->asked, 0);
}

// --- dependents ---

TEST(ConfigManager, TellsDependentsOneLevelDeep)
{
    TestStore store;
    ParamDescriptor* const save = GetDescriptor(eParamID_RegisterSave);
    ParamDescriptor* const custom = GetDescriptor(eParamID_CustomTake);
    const auto saved = custom->GetDependentParamIDs();
    save->SetDependentParamIDs({eParamID_CustomTake, kUnknown, eParamID_ReelName});
    custom->SetDependentParamIDs({eParamID_SystemState});
    EXPECT_TRUE(store->Set(eParamID_RegisterSave, 2u));
    std::string data = "d";
    store->SetData(eParamID_RegisterSave, data, kTime);
    EXPECT_THAT(store.listener.Heard(), ElementsAre("int 5c010000=2", "int 1304000a=1", "str 1101000a=",
                                                    "data 5c010000=d", "data 1304000a=", "data 1101000a="));
    save->SetDependentParamIDs({});
    custom->SetDependentParamIDs(saved);
}

// --- listeners ---

TEST(ConfigManager, AListenerHearsEveryParameterOnceForEachRegistration)
{
    TestStore store;
    RecordingListener twice;
    store->AddConfigEventListener(eParamID_Take, &twice);
    store->AddConfigEventListener(&twice);
    EXPECT_FALSE(store->AddConfigEventListener(std::list<eParam_t>{eParamID_Take}, &twice));
    EXPECT_FALSE(store->AddConfigEventListener(nullptr));
    store->Set(eParamID_RegisterSave, 2u);
    EXPECT_THAT(twice.Heard(), ElementsAre("int 5c010000=2", "int 5c010000=2"));
    EXPECT_TRUE(store->RemoveConfigEventListener(&twice));
    store->Set(eParamID_RegisterSave, 3u);
    EXPECT_EQ(twice.Heard().size(), 3u);
    EXPECT_TRUE(store->RemoveConfigEventListener(&twice));
    EXPECT_FALSE(store->RemoveConfigEventListener(&twice));
    store->Set(eParamID_RegisterSave, 4u);
    EXPECT_EQ(twice.Heard().size(), 3u);
}

TEST(ConfigManager, AChangeMadeByAListenerIsToldAfterTheCurrentOne)
{
    TestStore store;
    RecordingListener reacting([&] {
        const unsigned int value = store->Get(eParamID_RegisterSave);
        if (reacting.Heard().back().starts_with("str") || value >= 4) return;
        EXPECT_TRUE(store->Set(eParamID_RegisterSave, value + 1));
        EXPECT_EQ(store->Get(eParamID_RegisterSave), value + 1) << "stored at once";
        if (value == 2) store->Set(eParamID_ReelName, std::string("B002"));
    });
    RecordingListener last;
    store->RemoveConfigEventListener(&store.listener);
    store->AddConfigEventListener(&reacting);
    store->AddConfigEventListener(&last);
    store->Set(eParamID_RegisterSave, 2u);
    const auto order = ElementsAre("int 5c010000=2", "int 5c010000=3", "str 1101000a=B002", "int 5c010000=4");
    EXPECT_THAT(last.Heard(), order);
    EXPECT_THAT(reacting.Heard(), order);
}

TEST(ConfigManager, ListenersMayComeAndGoAndThrowInACallback)
{
    TestStore store;
    RecordingListener second, third, late, throwing([] { throw 1; });
    RecordingListener first([&] {
        store->RemoveConfigEventListener(&first);           // itself
        store->RemoveConfigEventListener(&second);          // one that is still to be called
        store->RemoveConfigEventListener(&store.listener);  // one that was called
        store->AddConfigEventListener(&late);
    });
    for (RecordingListener* const listener : {&first, &throwing, &second, &third})
        store->AddConfigEventListener(listener);
    for (const unsigned int value : {2u, 3u})
        StderrOf([&] { EXPECT_TRUE(store->Set(eParamID_RegisterSave, value)); });
    EXPECT_THAT(first.Heard(), ElementsAre("int 5c010000=2"));
    EXPECT_THAT(second.Heard(), IsEmpty());
    EXPECT_THAT(third.Heard(), ElementsAre("int 5c010000=2", "int 5c010000=3"));
    EXPECT_THAT(late.Heard(), ElementsAre("int 5c010000=3"));
}

/// Otherwise a writer could announce its value after that of one which stored later, and the listeners would
/// keep the older.
TEST(ConfigManager, NothingIsStoredWhileTheListenersAreTold)
{
    struct Way {
        std::function<void(char)> write;
        std::function<std::string()> read;
    };
    TestStore store;
    const auto text = [&] {
        std::string value;
        store->Get(eParamID_ReelName, value);
        return value;
    };
    const Way kWays[] = {
        {[&](char value) { store->Set(eParamID_RegisterSave, static_cast<unsigned int>(value - '0')); },
         [&] { return std::to_string(store->Get(eParamID_RegisterSave)); }},
        {[&](char value) { store->Set(eParamID_ReelName, std::string(1, value)); }, text},
        {[&](char value) {
             std::string data(1, value);
             store->SetData(eParamID_ReelName, data);
         },
         text},
    };
    for (const Way& way : kWays) {
        Gate gate;
        RecordingListener blocking([&] { gate.Pass(); });
        store->AddConfigEventListener(&blocking);
        std::jthread first(way.write, '2');
        gate.Await();
        const WatchedThread second([&way] { way.write('3'); });
        EXPECT_TRUE(second.Waits());
        EXPECT_EQ(way.read(), "2");
        gate.Open();
        first.join();
        store->RemoveConfigEventListener(&blocking);
    }
}

// --- life ---

TEST(ConfigManager, ValuesOutliveTheirStoreAndServeTheNextOfItsNumber)
{
    const auto object = [](eConfigID_t id) {
        TestStore store(id);
        Serializable* const held = store->GetSerializable(eParamID_RegisterSave);
        EXPECT_EQ(store->Get(eParamID_RegisterSave), 1u) << "the factory default, not the last store's value";
        EXPECT_TRUE(held->IsDirty()) << "as a new value of that number";
        store->Set(eParamID_RegisterSave, 9u);
        return held;
    };
    Serializable* const held = object(4711);
    unsigned int value = 0;
    EXPECT_NE(object(4712), held);
    dynamic_cast<IntegerValue&>(*held).Get(value);
    EXPECT_EQ(value, 9u) << "a pointer that was kept may still be read, and no other store writes to it";
    EXPECT_EQ(object(4711), held);

    std::set<Serializable*> objects;
    const int kept = vexa::FormerValues::kKeptApart;
    for (int id = 1; id <= 2 * kept; ++id) objects.insert(object(id));
    EXPECT_LT(objects.size(), 2 * vexa::FormerValues::kKeptApart) << "or a peer could grow the process";
}

TEST(ConfigManager, AValueOfAnotherClassDoesNotServeTheNextStore)
{
    IntegerDescriptor number;
    StringDescriptor text;
    for (ParamDescriptor* const descriptor :
         {static_cast<ParamDescriptor*>(&number), static_cast<ParamDescriptor*>(&text)}) {
        CreateDescriptors();
        descriptor->SetParamID(kUnknown);
        g_paramDescriptors[kUnknown] = descriptor;
        TestStore store(4711);
        EXPECT_EQ(store->Set(kUnknown, std::string("text")), descriptor == &text);
    }
    g_paramDescriptors.erase(kUnknown);
}

/// Keeps what it heard last, without allocating.
struct QuietListener : ConfigEventListener {
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval) override
    {
        if (id == eParamID_RegisterSave) number = value;
        return true;
    }
    bool ParamChanged(eParam_t id, std::string value, timeval) override
    {
        if (id == eParamID_CustomClipName) text.swap(value);
        return true;
    }
    bool DataChanged(eParam_t, std::string& value, timeval) override
    {
        data.swap(value);
        return true;
    }
    unsigned int number = 1;
    std::string text, data;
};

TEST(ConfigManager, WithoutMemoryAChangeIsRefusedOrToldAsItIsStored)
{
    TestStore store;
    store->RemoveConfigEventListener(&store.listener);
    QuietListener first, second;
    for (QuietListener* const listener : {&first, &second}) store->AddConfigEventListener(listener);
    ParamDescriptor* const save = GetDescriptor(eParamID_RegisterSave);
    save->SetDependentParamIDs({eParamID_ReelName});
    std::string value, text, data;
    bool done = false;
    const auto prepare = [&](int run) {
        value = std::to_string(run) + std::string(100, 'x');
        done = false;
    };
    const auto heard = [&] {
        store->Get(eParamID_CustomClipName, text);
        store->GetData(eParamID_TestData, data);
        for (const QuietListener* const listener : {&first, &second}) {
            EXPECT_EQ(listener->number, store->Get(eParamID_RegisterSave));
            EXPECT_EQ(listener->text, text);
            EXPECT_EQ(listener->data, data);
        }
    };
    unsigned int number = 1;
    StderrOf([&] {
        EXPECT_GE(
            WithEachAllocationFailing([&](int run) { number = 2 + static_cast<unsigned int>(run) % 10; },
                                      [&] { done = store->Set(eParamID_RegisterSave, number, kTime); },
                                      [&] {
                                          EXPECT_EQ(done, store->Get(eParamID_RegisterSave) == number);
                                          heard();
                                      }),
            4);
        EXPECT_GE(
            WithEachAllocationFailing(
                prepare, [&] { done = store->Set(eParamID_CustomClipName, std::move(value), kTime); }, heard),
            6);
        EXPECT_GE(WithEachAllocationFailing(
                      prepare, [&] { done = store->SetData(eParamID_TestData, value, kTime); },
                      [&] {
                          heard();
                          EXPECT_EQ(done, data == value);
                      }),
                  4);
    });
    EXPECT_TRUE(done);
    save->SetDependentParamIDs({});
}

TEST(ConfigManager, WithoutMemoryNothingElseThrows)
{
    TestStore store;
    store->Set(eParamID_ReelName, std::string(100, 'x'));
    RecordingListener listener;
    for (int n = 0; n < 3; ++n) store->AddConfigEventListener(&listener);  // no room is left
    std::string text;
    ScriptedPrecondition precondition;
    const std::function<bool()> operations[] = {
        [&] { return text.clear(), text.shrink_to_fit(), store->Get(eParamID_ReelName, text); },
        [&] { return store->AddConfigEventListener(&listener); },
        [&] { return !store->GetParamIDs().empty(); },
        [&] {
            return store->AddUpdatePrecondition(&precondition) &&
                   store->RemoveUpdatePrecondition(&precondition);
        },
    };
    for (const auto& operation : operations) {
        bool done = false;
        StderrOf([&] { EXPECT_GE(WithEachAllocationFailing([&] { done = operation(); }), 1); });
        EXPECT_TRUE(done);
    }
}

TEST(ConfigManager, TheEndOfAStoreNeedsNoMemory)
{
    auto store = std::make_unique<TestStore>();
    (*store)->Set(eParamID_ReelName, std::string(10'000, 'x'));
    StderrOf([&] { (*store)->AddUpdatePrecondition(new ScriptedPrecondition); });
    const FailingNew failing(0);
    store.reset();
    EXPECT_FALSE(failing.Failed());
}

}  // namespace
