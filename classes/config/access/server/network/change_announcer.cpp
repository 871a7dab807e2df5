#include "config/access/server/network/change_announcer.h"

#include <algorithm>

#include "config/access/protocol/value_payload.h"
#include "config/base/log.h"
#include "config/config.h"

namespace vexa::corvalis::config::access {

namespace {

/// The change that this thread is making for a UDP client.
thread_local ChangeAnnouncer::OwnChange* t_ownChange = nullptr;

XCONFIGMGR_RESPONSE_T EventRecord(eMessageType_t type, Config& config, eParam_t id, timeval time)
{
    XCONFIGMGR_RESPONSE_T record;
    record.msgtype = type;
    record.configID = config.GetConfigID();
    record.paramID = id;
    SetTime(record, time);
    return record;
}

}  // namespace

// --- events ---

MulticastSender::Event NumberEvent(Config& config, eParam_t id, unsigned int value, timeval time)
{
    MulticastSender::Event event{EventRecord(XCFG_PARAM_CHANGED_EVENT, config, id, time), ""};
    event.record.value = value;
    return event;
}

MulticastSender::Event TextEvent(Config& config, eParam_t id, timeval time, std::endian payloadOrder)
{
    std::string payload = WritePayload(config.GetSerializable(id), payloadOrder);
    if (payload.empty()) Print("ParamChanged: Invalid serializable value (ParamID:0x%0x)\n", id);
    return {EventRecord(XCFG_PARAM_STRING_CHANGED_EVENT, config, id, time), std::move(payload)};
}

MulticastSender::Event DataEvent(Config& config, eParam_t id, std::string data, timeval time)
{
    return {EventRecord(XCFG_PARAM_DATA_CHANGED_EVENT, config, id, time), std::move(data)};
}

// --- announcer ---

ChangeAnnouncer::OwnChange::OwnChange(ChangeAnnouncer& announcer, std::vector<eParam_t> ids)
    : m_announcer(announcer), m_ids(std::move(ids))
{
    t_ownChange = this;
    m_announcer.SetOwnChange(this);
}

ChangeAnnouncer::OwnChange::~OwnChange()
{
    t_ownChange = nullptr;
    m_announcer.SetOwnChange(nullptr);
}

bool ChangeAnnouncer::OwnChange::Covers(const MulticastSender::Event& event) const
{
    return std::ranges::find(m_ids, event.record.paramID) != m_ids.end();
}

void ChangeAnnouncer::OwnChange::AnnounceKept(eParam_t except)
{
    SemaphoreHelper hold(m_announcer.m_sender.lock);
    for (MulticastSender::Event& event : m_kept)
        if (event.record.paramID != except) m_announcer.m_sender.Send(std::move(event));
}

void ChangeAnnouncer::SetOwnChange(OwnChange* change)
{
    SemaphoreHelper hold(m_sender.lock);
    m_ownChange = change;
}

ChangeAnnouncer::ChangeAnnouncer(Config& config, MulticastSender& sender, std::endian payloadOrder)
    : m_config(config), m_sender(sender), m_payloadOrder(payloadOrder)
{
    m_config.AddConfigEventListener(this);
}

ChangeAnnouncer::~ChangeAnnouncer()
{
    m_config.RemoveConfigEventListener(this);
}

bool ChangeAnnouncer::ParamChanged(eParam_t id, unsigned int value, timeval time)
{
    return Announce(NumberEvent(m_config, id, value, time));
}

bool ChangeAnnouncer::ParamChanged(eParam_t id, std::string, timeval time)
{
    MulticastSender::Event event = TextEvent(m_config, id, time, m_payloadOrder);
    return !event.payload.empty() && Announce(std::move(event));
}

bool ChangeAnnouncer::DataChanged(eParam_t id, std::string& data, timeval time)
{
    return Announce(DataEvent(m_config, id, data, time));
}

bool ChangeAnnouncer::Announce(MulticastSender::Event event)
{
    OwnChange* const own = t_ownChange;
    if (own && &own->m_announcer == this && own->Covers(event)) {
        own->m_kept.push_back(std::move(event));
        return true;
    }
    SemaphoreHelper hold(m_sender.lock);
    if (m_ownChange && m_ownChange->Covers(event)) m_ownChange->m_isOvertaken = true;
    m_sender.Send(std::move(event));
    return true;
}

}  // namespace vexa::corvalis::config::access
