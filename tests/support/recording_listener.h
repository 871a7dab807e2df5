/// A listener that remembers what it heard, as texts: "int 5c010000=7", "str 1302000a=Scene", "data
/// 7d04000a=..".
#pragma once

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "config/config_event_listener.h"

class RecordingListener : public ConfigEventListener {
  public:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override
    {
        return Record("int", id, std::to_string(value), time);
    }
    bool ParamChanged(eParam_t id, std::string value, timeval time) override
    {
        return Record("str", id, value, time);
    }
    bool DataChanged(eParam_t id, std::string& data, timeval time) override
    {
        return Record("data", id, data, time);
    }

    std::vector<std::string> Heard() const
    {
        const std::lock_guard hold(m_mutex);
        return m_heard;
    }
    timeval LastTime() const
    {
        const std::lock_guard hold(m_mutex);
        return m_lastTime;
    }

  private:
    bool Record(const char* kind, eParam_t id, const std::string& value, timeval time)
    {
        char head[32];
        snprintf(head, sizeof head, "%s %08x=", kind, id);
        const std::lock_guard hold(m_mutex);
        m_heard.push_back(head + value);
        m_lastTime = time;
        return false;  // results are ignored by the caller
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_heard;
    timeval m_lastTime{};
};

/// Calls back for every number, after it was recorded.
class Callback : public RecordingListener {
  public:
    explicit Callback(std::function<void()> function) : m_function(std::move(function)) {}
    using RecordingListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override
    {
        RecordingListener::ParamChanged(id, value, time);
        m_function();
        return true;
    }

  private:
    const std::function<void()> m_function;
};
