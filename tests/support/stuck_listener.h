/// A listener that is busy while others go on.
#pragma once

#include <atomic>
#include <map>
#include <mutex>

#include "config/config_event_listener.h"
#include "support/gate.h"

/// Stops at its first number and keeps the last value of each parameter.
class StuckListener : public ConfigEventListener {
  public:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval) override
    {
        if (m_heard++ == 0) gate.Pass();
        const std::lock_guard hold(m_lock);
        m_last[id] = value;
        return true;
    }
    bool ParamChanged(eParam_t, std::string, timeval) override { return true; }
    bool DataChanged(eParam_t, std::string&, timeval) override { return true; }
    std::map<eParam_t, unsigned int> Last() const
    {
        const std::lock_guard hold(m_lock);
        return m_last;
    }
    unsigned int Heard() const { return m_heard; }

    Gate gate;

  private:
    std::atomic<unsigned int> m_heard = 0;
    mutable std::mutex m_lock;
    std::map<eParam_t, unsigned int> m_last;
};
