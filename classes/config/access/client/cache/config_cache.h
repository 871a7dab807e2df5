/// ConfigCache: a Config that answers repeated reads from memory.
#pragma once

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/access/protocol/connection.h"
#include "config/base/export.h"
#include "config/base/semaphore_helper.h"
#include "config/config.h"
#include "config/listeners/listener_list.h"

namespace vexa {

/// The last known values of one kind. Never evicted, but what may be old is marked as unknown. Thread: any;
/// every operation takes the owner's lock for one look-up, and calls nothing under it.
template <class Value>
class CachedValues {
  public:
    /// @param lock  borrowed; several kinds share it.
    explicit CachedValues(LockSemaphore& lock) : m_lock(lock) {}

    /// What had been heard of a parameter before a call.
    struct Moment {
        /// Numbers of events, of losses and of writes so far.
        uint32_t events, losses, writes;
        /// Whether nothing was heard in between.
        bool SameEvents(const Moment& other) const
        {
            return events == other.events && losses == other.losses;
        }
    };

    /// @param value  untouched when nothing is known.
    bool Find(eParam_t id, Value& value) const
    {
        SemaphoreHelper hold(m_lock);
        const auto found = m_entries.find(id);
        if (found == m_entries.end() || !found->second.isKnown) return false;
        value = found->second.value;
        return true;
    }
    /// Whether this is known to be the value.
    bool Holds(eParam_t id, const Value& value) const
    {
        SemaphoreHelper hold(m_lock);
        const auto found = m_entries.find(id);
        return found != m_entries.end() && found->second.isKnown && found->second.value == value;
    }
    /// Whether another value was written last: the event that brought this one may be older than that write.
    bool MayBeOvertaken(eParam_t id, const Value& value) const
    {
        SemaphoreHelper hold(m_lock);
        const auto found = m_entries.find(id);
        return found != m_entries.end() && found->second.written.value_or(value) != value;
    }
    /// Taken before a read or write, for StoreFetched, StoreWritten or StoreConfirmed after it.
    Moment Now(eParam_t id) const
    {
        SemaphoreHelper hold(m_lock);
        const auto found = m_entries.find(id);
        return found == m_entries.end() ? Moment{0, m_losses, 0} : MomentOf(found->second);
    }
    /// Keeps the result of a read, unless a write or an event has brought a newer value meanwhile, or an event
    /// may have been lost.
    void StoreFetched(eParam_t id, const Value& value, Moment before)
    {
        SemaphoreHelper hold(m_lock);
        Entry& entry = m_entries[id];
        if (entry.isKnown || !before.SameEvents(MomentOf(entry))) return;
        entry.value = value;
        entry.isKnown = true;
    }
    /// Keeps a written value, unless an event came since: the store may have corrected the value.
    /// @param isConfirmed  false: the value may have been refused, so the next read asks.
    void StoreWritten(eParam_t id, Value value, Moment before, bool isConfirmed)
    {
        SemaphoreHelper hold(m_lock);
        Entry& entry = m_entries[id];
        entry.written = value;
        ++entry.writes;
        if (!before.SameEvents(MomentOf(entry))) return;
        entry.isKnown = isConfirmed;
        if (isConfirmed) entry.value = std::move(value);
    }
    /// Notes that a value which might have been overtaken is the store's: the last write is over then. Unless
    /// something happened since.
    void StoreConfirmed(eParam_t id, const Value& value, Moment before)
    {
        SemaphoreHelper hold(m_lock);
        const auto found = m_entries.find(id);
        if (found == m_entries.end()) return;
        const Moment now = MomentOf(found->second);
        if (before.SameEvents(now) && before.writes == now.writes) found->second.written = value;
    }
    /// @return whether the value differs from the one before; where none is known, from Value().
    bool StoreEvent(eParam_t id, Value value)
    {
        SemaphoreHelper hold(m_lock);
        Entry& entry = m_entries[id];
        ++entry.events;
        entry.isKnown = true;
        std::swap(entry.value, value);
        return entry.value != value;
    }
    /// Events were lost: every value may be old. The next event is still compared with what listeners know.
    void ForgetAll()
    {
        SemaphoreHelper hold(m_lock);
        ++m_losses;
        for (auto& [id, entry] : m_entries) entry.isKnown = false;
    }

  private:
    struct Entry {
        Value value{};
        std::optional<Value> written;  // through this cache, the last one
        uint32_t events = 0, writes = 0;
        bool isKnown = false;
    };

    Moment MomentOf(const Entry& entry) const VEXA_REQUIRES(m_lock)
    {
        return {entry.events, m_losses, entry.writes};
    }

    LockSemaphore& m_lock;
    std::map<eParam_t, Entry> m_entries VEXA_GUARDED_BY(m_lock);
    uint32_t m_losses VEXA_GUARDED_BY(m_lock) = 0;
};

}  // namespace vexa

/// Wraps another Config, normally a remote one, of which it must be a listener: its events keep the copies
/// current. Own listeners hear only events that change the cached value, so rarely a change that was made
/// through this cache: it knows the value by then.
///
/// A write whose success is not confirmed, as of a number over TCP and of a text over the network, leaves the
/// value unknown: the next read asks, unless an event has told it. When the wrapped configuration is lost or
/// events of it may be missing, every value is unknown; until the loss is noticed the cache goes on answering. The
/// connection of the cache is the wrapped one's.
///
/// A parameter's number, text and data are three values: a change of the text leaves the cached data as it was, and the
/// other way round. So one parameter is written and read in one of these ways by everybody.
///
/// Parameters with the class name "volatile" are always read and written through. The operations that are not
/// named here keep the defaults of Config.
///
/// Without memory an operation does nothing and answers false or 0, after one line. A value that cannot be kept makes
/// all of its kind unknown. A listener that cannot be told of a change misses it, and the listeners of the connection
/// hear that events are missing.
///
/// Thread: any. No lock is held while the wrapped configuration is called, so its events may arrive at any
/// time; two first reads at once may fetch twice.
class VEXA_EXPORT ConfigCache : public Config, public ConfigEventListener, public vexa::Connection {
  public:
    /// @param config  borrowed; it has to outlive the cache. Add the cache to its listeners, and Follower() to
    /// those of its connection if it can be lost.
    explicit ConfigCache(Config* config);
    /// Remove the cache from the wrapped configuration's listeners first: the cache does not do it, because
    /// that configuration may be gone by now.
    ~ConfigCache() override;
    ConfigCache(const ConfigCache&) = delete;
    ConfigCache& operator=(const ConfigCache&) = delete;

    /// Listens to the wrapped configuration's connection. Remove it there before the cache is destroyed.
    vexa::ConnectionListener* Follower() { return &m_follower; }

    using Config::Set;
    using Config::SetData;
    /// A failed fetch cannot be told from a 0 and is cached as 0.
    unsigned int Get(eParam_t id) override;
    eConfigID_t GetConfigID() override { return m_config->GetConfigID(); }
    timeval GetLastConfigUpdate() override { return m_config->GetLastConfigUpdate(); }
    ParamDescriptor* GetParamDescriptor(eParam_t id) override { return m_config->GetParamDescriptor(id); }
    ParamDescriptor* GetParamDescriptor(std::string paramIDName) override;
    std::list<eParam_t> GetParamIDs() override { return m_config->GetParamIDs(); }
    /// A value that the parameter has already is not sent; one line says so. If the cache knows it from an
    /// event only, and another value was written last, it asks the wrapped configuration first, once.
    bool Set(eParam_t id, unsigned int value, timeval time) override;
    /// @return the value once more: false says that it is 0.
    bool Get(eParam_t id, unsigned int& value) override;
    /// Always sent.
    bool Set(eParam_t id, std::string value, timeval time) override;
    bool Get(eParam_t id, std::string& value) override;
    bool GetData(eParam_t id, std::string& data) override;
    /// Bytes that the parameter is known to have are not sent.
    bool SetData(eParam_t id, std::string& data, timeval time) override;
    /// The listener hears the events that the cache passes on. Null is refused.
    bool AddConfigEventListener(ConfigEventListener* listener) override;
    /// Passed to the wrapped configuration: the listener hears every event of it.
    bool AddConfigEventListener(eParam_t id, ConfigEventListener* listener) override;
    bool AddConfigEventListener(std::list<eParam_t> ids, ConfigEventListener* listener) override;
    /// Removes every registration, those with the wrapped configuration as well. @return true.
    bool RemoveConfigEventListener(ConfigEventListener* listener) override;
    bool WaitForConfigEvent(ConfigEvent& event, long seconds, long microseconds) override;
    std::vector<ParamDescriptor*> GetDescriptorsByClassName(std::string name) override;

    /// A change of the wrapped configuration: kept, and passed on if it is news. @return true.
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;
    /// The same for data. @return true.
    bool DataChanged(eParam_t id, std::string& data, timeval time) override;
    void ParamChanged(ConfigEvent) override {}

    /// Call the own listeners, in the order of registration. For the cache itself: an application that calls them on a
    /// cache around a store of its process, with listeners that write to that store, may wait for ever for a thread
    /// that does so, too.
    void fireParamChangedEvent(eParam_t id, unsigned int value, timeval time);
    void fireParamChangedEvent(eParam_t id, std::string value, timeval time);
    /// The same for data.
    void fireDataChangedEvent(eParam_t id, std::string& data, timeval time);

    /// When the cache was made, or the key that it took over; {0, 0} without a clock. Caches with one key are
    /// bound to one another.
    timeval bindingKey() const;
    /// Takes the other's key over. @return whether that is a key, not {0, 0}.
    bool bind(const ConfigCache& other);

    /// Asked of the wrapped configuration once per parameter. A parameter without a descriptor is not
    /// volatile; one line says so, once.
    bool IsVolatile(eParam_t id);

  private:
    struct ConnectionFollower : vexa::ConnectionListener {
        explicit ConnectionFollower(ConfigCache& cache) : m_cache(cache) {}
        void ConnectionChanged(vexa::ConnectionChange change) override { m_cache.FollowConnection(change); }

      private:
        ConfigCache& m_cache;
    };
    enum class Volatility : uint8_t { Unknown = 0, Volatile = 1, NotVolatile = 2 };

    void FollowConnection(vexa::ConnectionChange change);
    template <class Value, class Write>
    bool WriteThrough(eParam_t id, vexa::CachedValues<Value>& values, const Value& value, const Write& write);
    template <class Value, class Fetch>
    bool IsConfirmed(eParam_t id, vexa::CachedValues<Value>& values, const Value& value, const Fetch& fetch);
    bool HasAlready(eParam_t id, unsigned int value);
    bool HasAlready(eParam_t id, const std::string& data);
    bool LookUpVolatility(eParam_t id);
    Volatility KnownVolatility(eParam_t id) const;
    bool LearnVolatility(eParam_t id, Volatility volatility);
    template <class Value>
    bool IsNews(eParam_t id, vexa::CachedValues<Value>& values, const Value& value);
    void LoseEvent();
    template <class Add>
    bool PassOn(ConfigEventListener* listener, const Add& add);
    size_t ForgetPassedOn(ConfigEventListener* listener);

    Config* const m_config;
    ConnectionFollower m_follower{*this};
    vexa::ListenerList m_listeners;
    std::list<ConfigEventListener*> m_passedOn VEXA_GUARDED_BY(m_lock);  // one entry per registration
    vexa::CachedValues<unsigned int> m_numbers{m_lock};
    std::map<eParam_t, Volatility> m_volatility VEXA_GUARDED_BY(m_lock);
    vexa::CachedValues<std::string> m_texts{m_lock};
    vexa::CachedValues<std::string> m_data{m_lock};
    timeval m_bindingKey VEXA_GUARDED_BY(m_lock) = {};
    mutable LockSemaphore m_lock;
};
