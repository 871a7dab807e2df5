/// A listener that uses the events it gets.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "config/config_event_listener.h"

class Listener : public ConfigEventListener {
  public:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval) override
    {
        const std::lock_guard hold(m_lock);
        m_heardLast = m_heardLast || (id == eParamID_SystemState && value == kShuttingDown);
        m_changed.notify_all();
        return true;
    }
    bool ParamChanged(eParam_t, std::string text, timeval) override { return Use(std::move(text)); }
    bool DataChanged(eParam_t, std::string& data, timeval) override { return Use(data); }

    /// Whether the event of the system's shutdown comes soon.
    bool HeardLast()
    {
        std::unique_lock hold(m_lock);
        return m_changed.wait_for(hold, std::chrono::milliseconds(20), [this] { return m_heardLast; });
    }

    static constexpr unsigned int kShuttingDown = 9;

  private:
    bool Use(std::string text)
    {
        const std::lock_guard hold(m_lock);
        m_text = std::move(text);
        return true;
    }

    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_heardLast = false;
    std::string m_text;
};
