#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"

namespace vexa::config::catalogue {

namespace {

/// A number stays with its zone: another one gets the next number, wherever it stands.
ValueList TimeZones()
{
    return {{0, "UTC-12:00"},  {1, "UTC-11:00"},  {2, "UTC-10:00"},  {3, "UTC-09:30"},  {4, "UTC-09:00"},
            {5, "UTC-08:00"},  {6, "UTC-07:00"},  {7, "UTC-06:00"},  {8, "UTC-05:00"},  {9, "UTC-04:00"},
            {10, "UTC-03:30"}, {11, "UTC-03:00"}, {12, "UTC-02:00"}, {13, "UTC-01:00"}, {14, "UTC+00:00"},
            {15, "UTC+01:00"}, {16, "UTC+02:00"}, {17, "UTC+03:00"}, {18, "UTC+03:30"}, {19, "UTC+04:00"},
            {20, "UTC+04:30"}, {21, "UTC+05:00"}, {22, "UTC+05:30"}, {23, "UTC+05:45"}, {24, "UTC+06:00"},
            {25, "UTC+06:30"}, {26, "UTC+07:00"}, {27, "UTC+08:00"}, {28, "UTC+08:45"}, {29, "UTC+09:00"},
            {30, "UTC+09:30"}, {31, "UTC+10:00"}, {32, "UTC+10:30"}, {33, "UTC+11:00"}, {34, "UTC+12:00"},
            {35, "UTC+12:45"}, {36, "UTC+13:00"}, {37, "UTC+14:00"}};
}
constexpr unsigned int kUTC = 14;

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
