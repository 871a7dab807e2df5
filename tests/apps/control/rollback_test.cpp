#include "mainstay/control/rollback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/base/origin.h"
#include "mainstay/control/reports.h"
#include "support/raw_peer.h"
#include "support/stderr_of.h"
#include "support/store.h"

using control::Failure, control::Handlers, control::Json, control::Peer, control::Rollback;

namespace {

class ControlRollback : public testing::Test {
  protected:
    ControlRollback()
    {
        m_rollback.emplace(*m_store, "");
        m_rollback->AddTo(m_handlers);
    }
    Json Ask(const Json& request) { return m_handlers.at(request.at("request"))(request, Peer{}).line; }
    Json Hold(const Json& values, int seconds = 1)
    {
        return Ask({{"request", "hold"}, {"seconds", seconds}, {"values", values}});
    }
    static Json Number(unsigned int value) { return {{"param", "RegisterSave"}, {"value", value}}; }
    bool Becomes(unsigned int value)
    {
        return Eventually([&] { return m_store->Get(eParamID_RegisterSave) == value; });
    }

    TestStore m_store;
    Handlers m_handlers;
    std::optional<Rollback> m_rollback;
};

TEST_F(ControlRollback, PutsBackWhatNobodyConfirms)
{
    m_store->Set(eParamID_RegisterSave, 3u);
    m_store->Set(eParamID_ReelName, "new");
    const Json answer = Hold({Number(2), {{"param", "0x1101000a"}, {"value", "old"}}});
    EXPECT_EQ(answer["hold"], 1);
    EXPECT_GE(answer["until"], control::Now());
    EXPECT_TRUE(Becomes(2));
    EXPECT_TRUE(Eventually([&] {
        std::string text;
        return m_store->Get(eParamID_ReelName, text) && text == "old";
    }));
    EXPECT_EQ(Ask({{"request", "confirm"}}), (Json{{"confirmed", 0}}));
}

// The second change was made on the first one: what it kept must not stay.
TEST_F(ControlRollback, UndoesTheLaterChangesWithAnEarlierOne)
{
    m_store->Set(eParamID_RegisterSave, 4u);
    Hold(Json::array({Number(2)}));
    Hold(Json::array({Number(3)}), 1000);
    EXPECT_TRUE(Becomes(2));
    EXPECT_EQ(Ask({{"request", "confirm"}}), (Json{{"confirmed", 0}}));
}

TEST_F(ControlRollback, UndoesAtTheEndWhatIsNotConfirmed)
{
    m_store->Set(eParamID_RegisterSave, 5u);
    const Json first = Hold(Json::array({Number(2)}), 1000);
    Hold(Json::array({Number(3)}), 1000);
    EXPECT_EQ(Ask({{"request", "confirm"}, {"hold", first["hold"]}}), (Json{{"confirmed", 1}}));
    EXPECT_THAT(StderrOf([&] { m_rollback.reset(); }),
                testing::HasSubstr("the daemon stops: put back 1, refused 0"));
    EXPECT_EQ(m_store->Get(eParamID_RegisterSave), 3u);
}

TEST_F(ControlRollback, RefusesWhatItCouldNotPutBack)
{
    for (const Json& values :
         {Json{{{"param", "NoSuch"}, {"value", 1}}}, Json{{{"param", "SW_Error_Alarm"}, {"value", ""}}},
          Json{{{"param", "RegisterSave"}, {"value", "x"}}}, Json{{{"param", "RegisterSave"}, {"value", -1}}},
          Json{{{"param", "RegisterSave"}, {"value", 4294967296}}},
          Json{{{"param", "ReelName"}, {"value", 1}}}})
        EXPECT_THROW(Hold(values), Failure) << values;
    for (const int seconds : {0, -1, 86'401}) EXPECT_THROW(Hold(Json::array(), seconds), Failure);
    for (size_t i = 0; i < Rollback::kMaxHolds; ++i) Hold(Json::array(), 1000);
    EXPECT_THROW(Hold(Json::array(), 1000), Failure);
    EXPECT_EQ(Ask({{"request", "confirm"}}), (Json{{"confirmed", Rollback::kMaxHolds}}));
}

}  // namespace
