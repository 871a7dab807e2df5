#include "config/config.h"

#undef NDEBUG  // __assert_fail has to be declared in release builds, too
#include <cassert>

#include "config/base/log.h"

namespace {

/// The time for a change that came without one. A failing clock is reported and the change goes on with time
/// 0.
timeval Now()
{
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) vexa::PrintError("Unable to get timeofday for Config");
    return now;
}

/// Unlike assert() it stays in release builds: the callers have no result to fall back on.
[[noreturn]] void FailAssertion(unsigned int line, const char* function)
{
    __assert_fail("false", "config.h", line, function);
}

}  // namespace

bool Config::Set(eParam_t id, unsigned int value)
{
    return Set(id, value, Now());
}

bool Config::Set(eParam_t id, std::string value)
{
    return Set(id, std::move(value), Now());
}

bool Config::SetData(eParam_t id, std::string& data)
{
    return SetData(id, data, Now());
}

bool Config::GetData(eParam_t, std::string&)
{
    FailAssertion(61, "virtual bool Config::GetData(eParam_t, std::string&)");
}

bool Config::SetData(eParam_t, std::string&, timeval)
{
    FailAssertion(62, "virtual bool Config::SetData(eParam_t, std::string&, timeval)");
}
