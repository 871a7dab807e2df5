/// ConfigManager: the in-process store of parameter values.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/base/semaphore_helper.h"
#include "config/descriptors/catalogue_config.h"
#include "config/listeners/listener_list.h"
#include "config/manager/range_rules.h"
#include "config/manager/update_precondition.h"
#include "config/manager/value_pool.h"
#include "config/streams/serializable.h"

class ConfigValue;

/// One configuration instance: every registered parameter with its value.
///
/// A write asks the update preconditions, runs the range rules, stores, runs the post-triggers, and announces
/// the change to all listeners, then one level of dependent parameters. Listeners hear the changes of one
/// store one after the other. The last event of a parameter tells the stored value, except for the takes that
/// new clip naming resets without an event. A listener may write to the store from its callback: its change
/// is stored at once and announced after the current one has reached every listener. It may also remove
/// itself or others.
///
/// Without memory an operation does nothing and returns false or null, after one line.
///
/// Thread: any, for every operation; preconditions are added and removed before concurrent writes begin.
/// Lock order: listener lock, value lock, the lock of one value.
class ConfigManager : public vexa::CatalogueConfig {
  public:
    explicit ConfigManager(eConfigID_t configID);
    /// The store must be out of use. The value objects live on, for the next store of its number: a
    /// caller may still hold one from GetSerializable. Needs no memory.
    ~ConfigManager() override;
    /// Deletes a store whose last user has left, which may be in a callback of it: then it is deleted after the
    /// outermost operation of this thread, and calls no listener any more.
    static void Release(ConfigManager* store);
    /// The number of a store of this process; nothing for any other pointer, which is not followed.
    static std::optional<eConfigID_t> IDOf(const Config* config);

    // Config; the forms that are not named here keep its defaults.
    using Config::AddConfigEventListener;
    using Config::Set;
    using Config::SetData;
    unsigned int Get(eParam_t id) override;
    eConfigID_t GetConfigID() override { return m_configID; }
    /// Always zero, deliberately: the store stamps its updates for itself only.
    timeval GetLastConfigUpdate() override { return {}; }
    using vexa::CatalogueConfig::GetParamDescriptor;
    ParamDescriptor* GetParamDescriptor(std::string paramIDName) override;
    std::list<eParam_t> GetParamIDs() override;
    bool Set(eParam_t id, unsigned int value, timeval time) override;
    bool Get(eParam_t id, unsigned int& value) override;
    bool Set(eParam_t id, std::string value, timeval time) override;
    bool Get(eParam_t id, std::string& value) override;
    Serializable* GetSerializable(eParam_t id) override;
    bool SetSerializable(eParam_t id, Serializable* value) override;
    bool GetData(eParam_t id, std::string& data) override;
    /// No precondition, range rule or trigger. The listeners are called even when the parameter holds no
    /// text.
    bool SetData(eParam_t id, std::string& data, timeval time) override;
    /// A listener that is added twice hears each change twice; each removal takes one registration away. Null is
    /// refused.
    bool AddConfigEventListener(ConfigEventListener* listener) override;
    /// The parameter is ignored: the listener hears all of them.
    bool AddConfigEventListener(eParam_t id, ConfigEventListener* listener) override;
    bool RemoveConfigEventListener(ConfigEventListener* listener) override;
    /// Null is refused, and so is any without memory; what is refused stays the caller's.
    bool AddUpdatePrecondition(vexa::config::UpdatePrecondition* precondition) override;
    /// The precondition belongs to the caller again.
    bool RemoveUpdatePrecondition(vexa::config::UpdatePrecondition* precondition) override;

    /// Called once by the creator: default preconditions, then every parameter's factory default.
    /// @return false without memory: the store is not whole then.
    bool Init();
    bool InitDefaultConfig();
    bool AddDefaultPreconditions();
    bool DeleteAllUpdatePreconditions();

    /// The number of clients that share this store; the store itself never acts on it. @return the new, or
    /// current, count.
    int32_t IncrementUseCount();
    int32_t DecrementUseCount();
    int32_t GetUseCount();

    /// The stored object, which belongs to the store; null when there is none.
    Serializable* GetConfigValue(eParam_t id);
    /// The same, made from the descriptor's factory default when it is missing.
    bool GetConfigValue(eParam_t id, Serializable*& value);
    /// One value without preconditions, triggers or events. The integer form never creates a value.
    bool SetConfigParam(eParam_t id, unsigned int value);
    bool SetConfigParam(eParam_t id, std::string value);
    bool GetConfigParam(eParam_t id, unsigned int& value);
    bool GetConfigParam(eParam_t id, std::string& value);
    /// The device's range rules.
    bool EnforceRangeLimits(eParam_t id, unsigned int& value);
    /// Raises a take number above the takes on the media, at most to 999.
    bool EnforceTakeLimits(unsigned int& value);
    /// The effects of a change on other parameters: new clip naming resets the take, without an event. The
    /// value is ignored.
    bool ExecutePostTriggers(eParam_t id, unsigned int& value);
    bool ExecutePostTriggers(eParam_t id, std::string value);
    bool FireParamChangedEvent(eParam_t id, unsigned int value, timeval time);
    bool FireParamChangedEvent(eParam_t id, std::string value, timeval time);
    /// The current values of these parameters; unknown ones are skipped.
    bool FireParamsChangedEvents(std::vector<eParam_t> ids, timeval time);
    bool FireDataChangedEvent(eParam_t id, std::string& data, timeval time);
    bool FireDataChangedEvents(std::vector<eParam_t> ids, timeval time);

  private:
    class Operation;

    template <class Queue>
    bool PassesPrecondition(vexa::config::UpdatePrecondition& precondition, Queue& queue);
    template <class Queue>
    bool PassesPreconditions(ParamDescriptor* descriptor, Queue& queue);
    bool SetFront(vexa::config::IntegerQueue& queue, timeval time);
    bool SetFront(vexa::config::StringQueue& queue, timeval time);
    std::unique_ptr<ConfigValue> MakeValue(ParamDescriptor& descriptor) const;
    bool FindOrMakeByID(eParam_t id, Serializable*& value) VEXA_EXCLUDES(m_valueLock);
    Serializable* FindOrMake(ParamDescriptor& descriptor) VEXA_EXCLUDES(m_valueLock);
    void StampUpdate();
    vexa::ListenerList::Ready ReadyEvent(eParam_t id, unsigned int value, timeval time);
    vexa::ListenerList::Ready ReadyEvent(eParam_t id, const std::string& value, timeval time);
    void AfterStoring(eParam_t id, unsigned int);
    void AfterStoring(eParam_t id, const std::string&);
    /// The turn is held from storing to the last event: otherwise two writers could announce in another order than
    /// they stored.
    template <class Value>
    bool StoreAndAnnounce(const vexa::ListenerList::Turn& turn, eParam_t id, Value& value, timeval time);
    bool StoreAndAnnounceData(const vexa::ListenerList::Turn& turn, ParamDescriptor& descriptor,
                              std::string& data, timeval time);
    void AnnounceCurrent(const vexa::ListenerList::Turn& turn, ParamDescriptor& descriptor, timeval time);
    void AnnounceCurrentData(const vexa::ListenerList::Turn& turn, eParam_t id, timeval time);
    void FireDependents(eParam_t id, timeval time);
    void FireDependentsData(ParamDescriptor& descriptor, timeval time);
    void LeaveValues() VEXA_EXCLUDES(m_valueLock);
    const eConfigID_t m_configID;

    // Initialised in this order. The value lock is not destroyed, like the values: a late reader may still be
    // leaving it.
    StaticLock m_useCountLock;
    vexa::ListenerList m_listeners;
    StaticLock m_valueLock;

    int32_t m_useCount VEXA_GUARDED_BY(m_useCountLock) = 0;
    vexa::FormerValues m_formerValues VEXA_GUARDED_BY(m_valueLock);
    vexa::FormerValues::Values m_values VEXA_GUARDED_BY(m_valueLock);  // owned; only ever grows

    // Never read together, so two words; the newest update wins.
    std::atomic<uint32_t> m_lastUpdateSeconds = 0, m_lastUpdateMicroseconds = 0;

    std::vector<vexa::config::UpdatePrecondition*> m_preconditions;  // owned; set up before concurrent writes
    vexa::RangeRules m_rangeRules;
};
