#include "config/manager/media_library.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "config/values/config_value.h"
#include "support/gate.h"
#include "support/store.h"

using testing::Contains, testing::ElementsAre, testing::Not, testing::StartsWith;

namespace {

/// A library whose media hold takes up to a number, and that notes how it was asked.
class FakeMedia : public MediaLibrary {
  public:
    explicit FakeMedia(unsigned int last) : lastTake(last) { SetMediaLibrary(this); }
    ~FakeMedia() override { SetMediaLibrary(nullptr); }

    std::unique_ptr<ClipFinder> MakeClipFinder(Config* config) override
    {
        return std::make_unique<Finder>(*this, *config);
    }
    std::unique_ptr<MediaCache> OpenMediaCache(const std::string& name) override
    {
        log.push_back("open " + name);
        return nullptr;
    }

    const unsigned int lastTake;
    std::vector<std::string> log;
    std::function<void(Config&)> whileSearching;

  private:
    class Finder : public ClipFinder {
      public:
        Finder(FakeMedia& media, Config& config) : m_media(media), m_config(config) {}
        std::list<Clip> findClips(bool a, bool b, bool c) override
        {
            m_media.log.push_back("find " + std::to_string(a) + std::to_string(b) + std::to_string(c));
            return {{"Clip", 1}};
        }
        bool allowOverwriteOfExistingClips() override { return true; }
        bool useCustomClipTake(bool allowOverwrite) override
        {
            EXPECT_TRUE(allowOverwrite);
            return m_config.Get(eParamID_UseCustomClipTake) == 1;
        }
        unsigned int getLastMatchingTakeInList(const std::list<Clip>& clips, bool custom,
                                               std::string name) override
        {
            EXPECT_EQ(clips.size(), 1u);
            EXPECT_EQ(name, "");
            m_media.log.push_back(std::string("last ") + (custom ? "custom" : "plain") + " gang " +
                                  std::to_string(m_config.Get(eParamID_GangEnable)));
            if (m_media.whileSearching) m_media.whileSearching(m_config);
            return m_media.lastTake;
        }

      private:
        FakeMedia& m_media;
        Config& m_config;
    };
};

TEST(RangeRules, NewClipNamingResetsTheTakeWithoutAnEvent)
{
    TestStore store;
    for (const eParam_t id :
         {eParamID_ClipName, eParamID_ClipNumber, eParamID_ClipAppend, eParamID_AlphaAppend}) {
        store->SetConfigParam(eParamID_Take, 55u);
        EXPECT_TRUE(store->Set(id, 1u));
        EXPECT_EQ(store->Get(eParamID_Take), 1u);
    }
    store->SetConfigParam(eParamID_CustomTake, 55u);
    EXPECT_TRUE(store->Set(eParamID_CustomClipName, std::string("Scene")));
    EXPECT_EQ(store->Get(eParamID_CustomTake), 1u);
    EXPECT_THAT(store.listener.Heard(), Not(Contains(StartsWith("int 1106000a"))));
    EXPECT_THAT(store.listener.Heard(), Not(Contains(StartsWith("int 1304000a"))));
}

TEST(RangeRules, TheTakeGoesAboveTheTakesOnTheMedia)
{
    for (const auto& [onMedia, wanted, result] : {std::array{0u, 1u, 1u},
                                                  {41u, 41u, 42u},
                                                  {41u, 42u, 42u},
                                                  {998u, 1u, 999u},
                                                  {0xffffffffu, 1u, 999u},
                                                  {0u, 5000u, 999u}}) {
        FakeMedia media(onMedia);
        TestStore store;
        unsigned int take = wanted;
        EXPECT_TRUE(store->EnforceRangeLimits(eParamID_Take, take));
        EXPECT_EQ(take, result) << onMedia << " on the media, wanted " << wanted;
        EXPECT_THAT(media.log, ElementsAre("open NewCache", "find 101", "last plain gang 0"));
    }
}

TEST(RangeRules, TheRangeStepDoesNotDecideWhatIsStored)
{
    FakeMedia media(41);
    TestStore store;
    EXPECT_TRUE(store->Set(eParamID_Take, 7u));
    EXPECT_EQ(store->Get(eParamID_Take), 7u)
        << "taken on the media, but the step runs for its side effects only";

    unsigned int available = 150;
    store->EnforceRangeLimits(eParamID_CurrentMediaAvailable, available);
    EXPECT_EQ(available, 99u);
    store->DeleteAllUpdatePreconditions();
    EXPECT_TRUE(store->Set(eParamID_CurrentMediaAvailable, 150u));
    EXPECT_EQ(store->Get(eParamID_CurrentMediaAvailable), 150u);
    EXPECT_THAT(store.listener.Heard(), Contains("int 7b03050a=150"));
}

TEST(RangeRules, ACustomTakeIsSoughtUnderCustomNamingThatNobodyElseSees)
{
    FakeMedia media(12);
    TestStore store;
    store->SetConfigParam(eParamID_GangEnable, 1u);
    const auto naming = [](Config& config) {
        std::string all;
        for (const eParam_t id : {eParamID_GangEnable, eParamID_UseCustomClipName, eParamID_UseCustomClipTake,
                                  eParamID_ClipNumber}) {
            unsigned int value = 99, held = 99;
            EXPECT_TRUE(config.Get(id, value));
            dynamic_cast<IntegerValue&>(*config.GetSerializable(id)).Get(held);
            EXPECT_TRUE(config.Get(id) == value && held == value);
            all += std::to_string(value);
        }
        return all;
    };
    store->SetConfigParam(eParamID_ClipNumber, 7u);
    media.whileSearching = [&](Config& seen) {
        EXPECT_EQ(naming(seen), "0117");
        EXPECT_EQ(naming(*store), "1007");
    };
    unsigned int take = 1;
    store->EnforceRangeLimits(eParamID_CustomTake, take);
    EXPECT_EQ(take, 13u);
    store->Set(eParamID_CustomClipName, std::string("Scene"));
    EXPECT_EQ(store->Get(eParamID_CustomTake), 13u);
    EXPECT_THAT(media.log, ElementsAre("open NewCache", "find 101", "last custom gang 0",  //
                                       "open NewCache", "find 101", "last custom gang 0"));
    EXPECT_EQ(naming(*store), "1007");
}

TEST(RangeRules, NoWriterWaitsForTheSearchForATakeThatAUserSets)
{
    for (const eParam_t take : {eParamID_CustomTake, eParamID_Take}) {
        Gate gate;
        FakeMedia media(0);
        TestStore store;
        media.whileSearching = [&](Config&) { gate.Pass(); };
        const std::jthread search([&] { store->Set(take, 5u); });
        EXPECT_FALSE(gate.KeepsWaiting([&] { store->Set(eParamID_UseCustomClipName, 1u); }));
        EXPECT_EQ(store->Get(eParamID_UseCustomClipName), 1u);
        EXPECT_THAT(store.listener.Heard(), Contains("int 1301000a=1"));
    }
}

TEST(RangeRules, AFailingMediaLibraryLeavesTheNamingAsItWas)
{
    FakeMedia media(0);
    TestStore store;
    media.whileSearching = [](Config&) { throw 1; };
    StderrOf([&] { EXPECT_TRUE(store->Set(eParamID_CustomTake, 5u)); });
    EXPECT_EQ(store->Get(eParamID_UseCustomClipName), 0u);
    EXPECT_EQ(store->Get(eParamID_CustomTake), 5u);
}

}  // namespace
