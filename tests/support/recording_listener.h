/// A listener that remembers what it heard, as texts: "int 5c010000=7", "str 1302000a=Scene", "data
/// 7d04000a=..".
#pragma once

#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "config/access/protocol/connection.h"
#include "config/config_event_listener.h"

class RecordingListener : public ConfigEventListener {
  public:
    /// @param react  called at every change, after it was recorded.
    explicit RecordingListener(std::function<void()> react = nullptr) : m_react(std::move(react)) {}

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
        {
            const std::lock_guard hold(m_mutex);
            m_heard.push_back(head + value);
            m_lastTime = time;
        }
        if (m_react) m_react();
        return false;  // results are ignored by the caller
    }

    const std::function<void()> m_react;
    mutable std::mutex m_mutex;
    std::vector<std::string> m_heard;
    timeval m_lastTime{};
};

/// Remembers what became of a connection.
class RecordingConnectionListener : public vexa::ConnectionListener {
  public:
    void ConnectionChanged(vexa::ConnectionChange change) override
    {
        const std::lock_guard hold(m_mutex);
        m_heard.push_back(change);
    }
    std::vector<vexa::ConnectionChange> Heard() const
    {
        const std::lock_guard hold(m_mutex);
        return m_heard;
    }

  private:
    mutable std::mutex m_mutex;
    std::vector<vexa::ConnectionChange> m_heard;
};
