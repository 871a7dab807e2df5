#include "config/access/server/peer_stores.h"

#include <gtest/gtest.h>

#include <string>

#include "support/gate.h"
#include "support/recording_listener.h"
#include "support/test_server.h"

using namespace vexa::corvalis::config::access;

namespace {

constexpr eConfigID_t kConfig = 71;

/// Puts a value into each store and listens to it, as one does that keeps values on a disk.
class Keeper : public PeerStoreWatcher {
  public:
    ~Keeper() override { WatchPeerStores(nullptr); }

    void Opened(Config& store) override
    {
        if (gate) gate->Pass();
        store.Set(eParamID_RegisterSave, 7u);
        store.AddConfigEventListener(&listener);
        told += "opened " + std::to_string(store.GetConfigID()) + " ";
    }
    void Closing(Config& store) override
    {
        store.RemoveConfigEventListener(&listener);
        told += "closing with " + std::to_string(store.Get(eParamID_RegisterSave)) + " ";
    }

    Gate* gate = nullptr;
    RecordingListener listener;
    std::string told;
};

TEST(PeerStores, WatcherIsToldOfTheFirstPeerAndOfTheLast)
{
    CreateDescriptors();
    Keeper keeper;
    WatchPeerStores(&keeper);
    Config* const first = OpenPeerStore(kConfig);
    EXPECT_EQ(first->Get(eParamID_RegisterSave), 7u);
    EXPECT_EQ(OpenPeerStore(kConfig), first);
    ClosePeerStore(first);
    first->Set(eParamID_RegisterSave, 8u);
    EXPECT_EQ(keeper.told, "opened 71 ");
    EXPECT_EQ(keeper.listener.Heard().size(), 1u);
    ClosePeerStore(first);
    EXPECT_EQ(keeper.told, "opened 71 closing with 8 ");
}

TEST(PeerStores, NobodyUsesAStoreBeforeItsWatcherHasSeenIt)
{
    CreateDescriptors();
    Keeper keeper;
    WatchPeerStores(&keeper);
    Gate gate;
    keeper.gate = &gate;
    WatchedThread first([] { ClosePeerStore(OpenPeerStore(kConfig)); });
    EXPECT_TRUE(gate.KeepsWaiting([] {
        Config* const store = OpenPeerStore(kConfig);
        EXPECT_EQ(store->Get(eParamID_RegisterSave), 7u);
        ClosePeerStore(store);
    }));
}

TEST(PeerStores, EndOfAWatcherLeavesNothingBehind)
{
    CreateDescriptors();
    Config* const store = OpenPeerStore(kConfig);
    {
        Keeper keeper;
        WatchPeerStores(&keeper);
        EXPECT_EQ(keeper.told, "opened 71 ");
        WatchPeerStores(nullptr);
        EXPECT_EQ(keeper.told, "opened 71 closing with 7 ");
    }
    EXPECT_TRUE(store->Set(eParamID_RegisterSave, 9u));  // a listener that stayed would be called
    ClosePeerStore(store);
}

}  // namespace
