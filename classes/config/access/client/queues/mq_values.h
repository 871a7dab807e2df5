/// MQValues: reading and writing values over a message-queue connection.
#pragma once

#include <sys/time.h>

#include <atomic>
#include <string>

#include "config/access/client/queues/mq_connection.h"

namespace vexa::config::access {

/// A failure prints one line or more. Thread: any; one request at a time over all connections of the factory.
class MQValues {
  public:
    /// @param connection  borrowed.
    MQValues(MQConnection& connection, eConfigID_t configID) : m_connection(connection), m_configID(configID)
    {
    }
    MQValues(const MQValues&) = delete;
    MQValues& operator=(const MQValues&) = delete;

    /// @return 0 on failure.
    unsigned int GetNumber(eParam_t id);
    bool SetNumber(eParam_t id, unsigned int value);
    /// @param value  untouched on failure.
    bool GetText(eParam_t id, std::string& value);
    bool SetText(eParam_t id, const std::string& value);
    /// The time that the last answer carried.
    timeval LastUpdate();

  private:
    XCONFIGMGR_REQUEST_T Request(eMessageType_t type, eParam_t id, eConfigID_t configID) const;
    Outcome Exchange(XCONFIGMGR_REQUEST_T& request, const std::string& stream, MQMessage& answer);
    void StoreLastUpdate(const MQMessage& answer);
    bool FetchNumber(eParam_t id, unsigned int& value);

    MQConnection& m_connection;
    const eConfigID_t m_configID;
    Mutex m_timeLock;
    timeval m_lastUpdate VEXA_GUARDED_BY(m_timeLock) = {};
};

}  // namespace vexa::config::access
