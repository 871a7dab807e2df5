/// A store of its own, with the catalogue built.
#pragma once

#include "config/descriptors/registry/registry.h"
#include "config/manager/config_manager.h"
#include "support/recording_listener.h"
#include "support/stderr_of.h"

/// A ConfigManager with factory defaults and a listener that records.
class TestStore {
  public:
    explicit TestStore(eConfigID_t id = 0) : m_store(id)
    {
        StderrOf([&] {
            CreateDescriptors();
            m_store.Init();
        });
        m_store.AddConfigEventListener(&listener);
    }
    ConfigManager* operator->() { return &m_store; }
    ConfigManager& operator*() { return m_store; }

    RecordingListener listener;

  private:
    ConfigManager m_store;
};
