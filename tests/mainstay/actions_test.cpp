#include "mainstay/actions/actions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mainstay/actions/preset_file.h"
#include "services/alarms/alarm_producer.h"
#include "support/raw_peer.h"
#include "support/store.h"

using testing::HasSubstr;

TEST(Actions, ClearingAlarmsLeavesThoseThatCannotBeCleared)
{
    TestStore store;
    state::SettingsFile file("", "OAK", 100);
    ASSERT_TRUE(file.Open());
    actions::Presets presets(*store, file, "");
    actions::Programs programs({});
    const actions::Actions actions(*store, presets, programs);
    const auto read = [&](eParam_t id) {
        std::string bytes;
        EXPECT_TRUE(store->GetData(id, bytes));
        return bytes;
    };
    for (const eParam_t id : {eParamID_SW_Error_Alarm, eParamID_Near_Over_Temp_Alarm}) {
        ASSERT_TRUE(AlarmProducer::raise(&*store, id));
    }
    const std::string cleared = read(eParamID_SW_Error_Alarm), stays = read(eParamID_Near_Over_Temp_Alarm);
    store->Set(eParamID_Clear_Alarms, 1U);
    EXPECT_TRUE(Eventually([&] { return store->Get(eParamID_Clear_Alarms) == 0; }));
    EXPECT_NE(read(eParamID_SW_Error_Alarm), cleared);
    EXPECT_EQ(read(eParamID_Near_Over_Temp_Alarm), stays);
}

/// The bytes are the same on every machine: front ends and units exchange them.
TEST(PresetFile, IsBigEndianAndRefusesWhatItIsNot)
{
    const state::Values values{{eParamID_FanSpeed, 80U}, {eParamID_ReelName, std::string("é")}};
    const std::string bytes = actions::PackPreset(8, values);
    EXPECT_EQ(bytes.substr(0, 12), std::string("\0\0\0\x0e\0\0\x10\x01\0\0\0\x08", 12));
    StderrOf([&] {
        std::string reason;
        EXPECT_EQ(actions::UnpackPreset(8, bytes, reason), values);
        EXPECT_EQ(actions::UnpackPreset(9, bytes, reason), std::nullopt);
        EXPECT_THAT(reason, HasSubstr("another model"));
        for (size_t size = 0; size < bytes.size(); ++size) {
            reason.clear();
            EXPECT_EQ(actions::UnpackPreset(8, bytes.substr(0, size), reason), std::nullopt) << size;
            EXPECT_NE(reason, "");
        }
        for (size_t i = 0; i < bytes.size() * 8; ++i) {  // never more than other values
            std::string other = bytes;
            other[i / 8] = static_cast<char>(other[i / 8] ^ (1 << i % 8));
            reason.clear();
            actions::UnpackPreset(8, other, reason);
        }
    });
}
