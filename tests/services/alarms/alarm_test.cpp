#include "services/alarms/alarm_consumer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "services/alarms/alarm_producer.h"
#include "support/store.h"

using testing::SizeIs;
using vexa::alarms::Alarm;

namespace {

constexpr eParam_t kAlarm = eParamID_SW_Error_Alarm;
constexpr eParam_t kUnknown{0x01020304};

Alarm Stored(TestStore& store)
{
    std::string bytes;
    EXPECT_TRUE(store->GetData(kAlarm, bytes));
    Alarm alarm;
    EXPECT_TRUE(alarm.ParseFromString(bytes));
    return alarm;
}

TEST(AlarmProducer, PublishesChangesOnly)
{
    TestStore store;
    AlarmProducer producer(&*store, kAlarm);
    EXPECT_TRUE(producer.Clear());
    EXPECT_THAT(store.listener.Heard(), SizeIs(0)) << "clear already";
    EXPECT_TRUE(producer.Set(Alarm::CRITICAL));
    EXPECT_TRUE(producer.Set(Alarm::CRITICAL));
    EXPECT_TRUE(producer.Set());
    EXPECT_THAT(store.listener.Heard(), SizeIs(1));
    EXPECT_EQ(Stored(store).state(), Alarm::RAISED);
    EXPECT_EQ(Stored(store).severity(), Alarm::CRITICAL);

    EXPECT_TRUE(producer.AddError("first"));
    EXPECT_THAT(store.listener.Heard(), SizeIs(1)) << "published by the next change";
    EXPECT_TRUE(producer.Set(Alarm::WARNING));
    EXPECT_THAT(store.listener.Heard(), SizeIs(2));
    producer.Clear();
    EXPECT_EQ(Stored(store).state(), Alarm::CLEAR);
    ASSERT_EQ(Stored(store).error_size(), 1) << "errors stay until they are cleared";
    EXPECT_EQ(Stored(store).error(0).text(), "first");
    producer.ClearErrors();
    producer.Set();
    EXPECT_EQ(Stored(store).error_size(), 0);
}

TEST(AlarmProducer, WithoutAnObjectAlarmsStartFromRest)
{
    TestStore store;
    EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm, Alarm::CRITICAL, "one"));
    EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm));
    EXPECT_EQ(Stored(store).state(), Alarm::RAISED);
    EXPECT_EQ(Stored(store).severity(), Alarm::ERROR) << "that of the alarm at rest";
    EXPECT_EQ(Stored(store).error_size(), 0);
    EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm, Alarm::WARNING, "no UTF-8: \xe9"));
    EXPECT_EQ(Stored(store).error(0).text(), "no UTF-8: \xe9");
    EXPECT_TRUE(AlarmProducer::clear(&*store, kAlarm));
    EXPECT_EQ(Stored(store).state(), Alarm::CLEAR);
    EXPECT_EQ(Stored(store).severity(), Alarm::ERROR);

    const auto unlisted = static_cast<vexa::alarms::Alarm_Severity>(77);
    EXPECT_EQ(StderrOf([&] { EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm, unlisted, "")); }),
              "CHECK failed: ::vexa::alarms::Alarm_Severity_IsValid(value): \n");
    EXPECT_EQ(Stored(store).severity(), 77) << "stored all the same";
}

TEST(AlarmProducer, WhatIsNoAlarmIsRefused)
{
    TestStore store;
    EXPECT_FALSE(AlarmProducer::raise(nullptr, kAlarm));
    EXPECT_FALSE(AlarmProducer::clear(nullptr, kAlarm));
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(AlarmProducer::raise(&*store, kUnknown)); }),
              "AlarmProducer::assert - 16909060 Has no descriptor\n");
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(AlarmProducer::clear(&*store, eParamID_CustomClipName)); }),
              "AlarmProducer::clear - 318898186 Has no descriptor\n");
    EXPECT_EQ(StderrOf([&] { AlarmProducer producer(&*store, kUnknown); }),
              "AlarmProducer: 16909060 Has no descriptor\n");
    EXPECT_THAT(store.listener.Heard(), SizeIs(0));
}

/// Hands the alarms of its store to a consumer.
class AlarmConsumerTest : public testing::Test, public RecordingListener {
  protected:
    AlarmConsumerTest() { store->AddConfigEventListener(this); }
    bool DataChanged(eParam_t id, std::string& data, timeval) override
    {
        if (AlarmConsumer::isAlarm(&*store, id)) consumer.AlarmChanged(id, data);
        return true;
    }

    TestStore store;
    AlarmConsumer consumer{&*store};
};

TEST_F(AlarmConsumerTest, ShowsTheLastChangeOnce)
{
    EXPECT_FALSE(consumer.LockIfChanged());
    consumer.Unlock();  // nothing to give back
    AlarmProducer::raise(&*store, kAlarm, Alarm::WARNING, "first");
    AlarmProducer::raise(&*store, eParamID_Media_Low_Alarm, Alarm::CRITICAL, "second");
    std::string data = "not an alarm";
    store->SetData(eParamID_TestData, data);
    ASSERT_TRUE(consumer.LockIfChanged());
    EXPECT_EQ(consumer.GetParamID(), eParamID_Media_Low_Alarm);
    EXPECT_EQ(consumer.GetSeverity(), Alarm::CRITICAL);
    EXPECT_EQ(consumer.GetState(), Alarm::RAISED);
    EXPECT_EQ(consumer.GetError(), "second");
    EXPECT_EQ(consumer.GetShortError(), "");
    consumer.Unlock();
    EXPECT_FALSE(consumer.LockIfChanged());
}

TEST_F(AlarmConsumerTest, ADisplayThatHoldsTheLockStopsNoWriterAndMayWriteItself)
{
    AlarmProducer::raise(&*store, kAlarm, Alarm::WARNING, "shown");
    ASSERT_TRUE(consumer.LockIfChanged());
    std::thread([&] { AlarmProducer::raise(&*store, kAlarm, Alarm::CRITICAL, "meanwhile"); }).join();
    EXPECT_TRUE(AlarmProducer::clear(&*store, kAlarm)) << "an operator acknowledges";
    EXPECT_EQ(consumer.GetError(), "shown") << "what is being shown stays";
    consumer.Unlock();
    ASSERT_TRUE(consumer.LockIfChanged());
    EXPECT_EQ(consumer.GetState(), Alarm::CLEAR);
    consumer.Unlock();
}

}  // namespace
