#include "services/alarms/alarm_consumer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "config/descriptors/string_descriptor.h"
#include "services/alarms/alarm_producer.h"
#include "support/raw_peer.h"
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

std::string AtRest()
{
    return dynamic_cast<AlarmDescriptor*>(FindDescriptor(kAlarm))->GetFactoryDefault();
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
    EXPECT_TRUE(producer.Set(Alarm::WARNING));
    EXPECT_THAT(store.listener.Heard(), SizeIs(2));
}

TEST(AlarmProducer, ErrorsAccumulateUntilTheyAreCleared)
{
    TestStore store;
    AlarmProducer producer(&*store, kAlarm);
    producer.Set();
    EXPECT_TRUE(producer.AddError("first"));
    EXPECT_THAT(store.listener.Heard(), SizeIs(1)) << "published by the next change";
    producer.Clear();
    EXPECT_EQ(Stored(store).state(), Alarm::CLEAR);
    ASSERT_EQ(Stored(store).error_size(), 1);
    EXPECT_EQ(Stored(store).error(0).text(), "first");
    producer.ClearErrors();
    producer.Set();
    EXPECT_EQ(Stored(store).error_size(), 0);
}

TEST(AlarmProducer, WithoutAnObjectAlarmsStartFromRest)
{
    TestStore store;
    EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm, Alarm::CRITICAL, "one"));
    EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm, Alarm::WARNING, "two"));
    ASSERT_EQ(Stored(store).error_size(), 1);
    EXPECT_EQ(Stored(store).error(0).text(), "two");
    EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm, Alarm::WARNING, "no UTF-8: \xe9"));
    EXPECT_EQ(Stored(store).error(0).text(), "no UTF-8: \xe9");
    EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm));
    EXPECT_EQ(Stored(store).state(), Alarm::RAISED);
    EXPECT_EQ(Stored(store).severity(), Alarm::ERROR) << "that of the alarm at rest";
    EXPECT_EQ(Stored(store).error_size(), 0);
    EXPECT_TRUE(AlarmProducer::clear(&*store, kAlarm));
    std::string bytes;
    store->GetData(kAlarm, bytes);
    EXPECT_EQ(bytes, AtRest());

    const auto unlisted = static_cast<vexa::alarms::Alarm_Severity>(77);
    EXPECT_EQ(
        StderrOf([&] { EXPECT_TRUE(AlarmProducer::raise(&*store, kAlarm, Alarm::RAISED, unlisted, "")); }),
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

/// Hands the alarms of a store to a consumer.
class Display : public RecordingListener {
  public:
    explicit Display(TestStore& store) : consumer(&*store), m_store(store)
    {
        store->AddConfigEventListener(this);
    }
    bool DataChanged(eParam_t id, std::string& data, timeval) override
    {
        if (AlarmConsumer::isAlarm(&*m_store, id)) consumer.AlarmChanged(id, data);
        return true;
    }
    AlarmConsumer consumer;

  private:
    TestStore& m_store;
};

TEST(AlarmConsumer, ShowsTheLastChangeOnce)
{
    TestStore store;
    Display display(store);
    AlarmConsumer& consumer = display.consumer;
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

TEST(AlarmConsumer, ADisplayThatHoldsTheLockStopsNoWriterAndMayWriteItself)
{
    TestStore store;
    Display display(store);
    AlarmProducer::raise(&*store, kAlarm, Alarm::WARNING, "shown");
    ASSERT_TRUE(display.consumer.LockIfChanged());
    std::thread([&] { AlarmProducer::raise(&*store, kAlarm, Alarm::CRITICAL, "meanwhile"); }).join();
    EXPECT_TRUE(AlarmProducer::clear(&*store, kAlarm)) << "an operator acknowledges";
    EXPECT_EQ(display.consumer.GetError(), "shown") << "what is being shown stays";
    display.consumer.Unlock();
    ASSERT_TRUE(display.consumer.LockIfChanged());
    EXPECT_EQ(display.consumer.GetState(), Alarm::CLEAR);
    display.consumer.Unlock();
}

TEST(AlarmConsumer, NoChangeIsLostBetweenWritersAndTheDisplay)
{
    TestStore store;
    AlarmConsumer consumer(&*store);
    std::thread writer([&] {
        Alarm alarm;
        for (int n = 1; n <= 2000; ++n) {
            alarm.mutable_error()->Clear();
            alarm.add_error()->set_text(std::to_string(n));
            consumer.AlarmChanged(kAlarm, alarm.SerializeAsString());
        }
    });
    std::string last;
    EXPECT_TRUE(Eventually([&] {
        for (; consumer.LockIfChanged(); consumer.Unlock()) last = consumer.GetError();
        return last == "2000";
    }));
    writer.join();
    EXPECT_FALSE(consumer.LockIfChanged());
}

}  // namespace
