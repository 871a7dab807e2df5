/// Alarms: messages from other programs, as displays read them and as the tool shows them, and texts for new
/// alarms.
#include "config/config_event_listener.h"
#include "fuzz/harness.h"
#include "services/alarms/alarm_consumer.h"
#include "services/alarms/alarm_producer.h"
#include "vexactl/parameter.h"

using vexa::alarms::Alarm;

namespace {

constexpr eParam_t kAlarm = eParamID_SW_Error_Alarm;

class Display : public ConfigEventListener {
  public:
    explicit Display(Config& store) : consumer(&store) { store.AddConfigEventListener(this); }
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t, unsigned int, timeval) override { return true; }
    bool ParamChanged(eParam_t, std::string, timeval) override { return true; }
    bool DataChanged(eParam_t id, std::string& data, timeval) override
    {
        consumer.AlarmChanged(id, data);
        return true;
    }
    AlarmConsumer consumer;
};

/// The display has the alarm that was stored.
void TestDisplay(AlarmConsumer& consumer, const std::string& bytes)
{
    Alarm alarm;
    if (!alarm.ParseFromString(bytes)) alarm.Clear();
    Require(consumer.LockIfChanged(), "the display hears of the alarm");
    Require(consumer.GetSeverity() == alarm.severity() && consumer.GetState() == alarm.state(),
            "the display has the alarm");
    Require(consumer.GetError() == (alarm.error_size() ? alarm.error(0).text() : ""), "and its text");
    consumer.GetShortError();
    consumer.Unlock();
}

void TestTool(Config& store, const std::string& bytes)
{
    const Parameter parameter(store.GetParamDescriptor(kAlarm));
    std::string value;
    Require(store.GetData(kAlarm, value) && value == bytes, "the store has the bytes");
    const std::string line = Dump(parameter.ToJson(value)) + parameter.Text(value);
    Require(line.find_first_of("\n\033") == std::string::npos, "a terminal gets one line of text");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Config& store = OpenStore();
    static Display& display = *new Display(store);
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string bytes = text;
    if (store.SetData(kAlarm, bytes)) {
        TestDisplay(display.consumer, text);
        TestTool(store, text);
    }
    AlarmProducer::raise(&store, kAlarm, Alarm::ERROR, text);
    display.consumer.LockIfChanged();
    display.consumer.Unlock();
    AlarmProducer::clear(&store, kAlarm);
    return 0;
}
