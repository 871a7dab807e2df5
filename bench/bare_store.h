/// The floor of a store.
#pragma once

#include <semaphore.h>

#include <map>
#include <vector>

#include "config/param_ids.h"

/// The least that a store of values can do: find one in an ordered map, under a lock of the map and a lock of
/// the value.
class BareStore {
  public:
    explicit BareStore(const std::vector<eParam_t>& ids)
    {
        sem_init(&m_mapLock, 0, 1);
        for (const eParam_t id : ids) sem_init(&m_values[id].lock, 0, 1);
    }
    unsigned int Get(eParam_t id)
    {
        sem_wait(&m_mapLock);
        Value& value = m_values.find(id)->second;
        sem_post(&m_mapLock);
        sem_wait(&value.lock);
        const unsigned int number = value.number;
        sem_post(&value.lock);
        return number;
    }

  private:
    struct Value {
        sem_t lock;
        unsigned int number = 0;
    };
    sem_t m_mapLock;
    std::map<eParam_t, Value> m_values;
};
