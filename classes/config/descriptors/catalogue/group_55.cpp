#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"

namespace vexa::config::catalogue {

namespace {

constexpr const char* kZones[] = {
    "UTC-12:00", "UTC-11:00", "UTC-10:00", "UTC-09:30", "UTC-09:00", "UTC-08:00", "UTC-07:00", "UTC-06:00",
    "UTC-05:00", "UTC-04:00", "UTC-03:30", "UTC-03:00", "UTC-02:00", "UTC-01:00", "UTC+00:00", "UTC+01:00",
    "UTC+02:00", "UTC+03:00", "UTC+03:30", "UTC+04:00", "UTC+04:30", "UTC+05:00", "UTC+05:30", "UTC+05:45",
    "UTC+06:00", "UTC+06:30", "UTC+07:00", "UTC+08:00", "UTC+08:45", "UTC+09:00", "UTC+09:30", "UTC+10:00",
    "UTC+10:30", "UTC+11:00", "UTC+12:00", "UTC+12:45", "UTC+13:00", "UTC+14:00"};
constexpr unsigned int kUTC = 14;

ValueList TimeZones()
{
    ValueList zones;
    for (const char* zone : kZones) zones.push_back({static_cast<unsigned int>(zones.size()), zone});
    return zones;
}

}  // namespace

/// Group 55: the clock. A reset must not turn the clock back, so date and time take no part in it. They are volatile
/// because the clock runs on: the same time on another day is another command.
void CreateGroup_55()
{
    Register(Integer(PARAM_ID(DateSet), "Date", "Date")
                 .Type(eCParam_Date)
                 .Command()
                 .Range(20000101, 20991231)
                 .Default(20000101)
                 .ClassName("volatile")
                 .ClassName("date_param")
                 .Description("Date of the clock, written as year, month and day in one number."));
    Register(Integer(PARAM_ID(TimeSet), "Time", "Time")
                 .Type(eCParam_Time)
                 .Command()
                 .Range(0, 235959)
                 .ClassName("volatile")
                 .Description("Time of the clock, written as hours, minutes and seconds in one number."));
    Register(Enum(PARAM_ID(TimeZone), "Time Zone", "TimeZone")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Default(kUTC)
                 .Values(TimeZones())
                 .Dependent(eParamID_DateSet)
                 .Dependent(eParamID_TimeSet)
                 .Description("Difference of local standard time from universal time."));
    Register(Enum(PARAM_ID(DaylightSavings), "Daylight Savings", "Daylight")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Values(OffOn())
                 .Dependent(eParamID_DateSet)
                 .Dependent(eParamID_TimeSet)
                 .Description("Puts the clock one hour ahead."));
}

}  // namespace vexa::config::catalogue
