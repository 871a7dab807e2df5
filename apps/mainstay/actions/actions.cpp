#include "mainstay/actions/actions.h"

#include <pthread.h>

#include <algorithm>
#include <set>
#include <utility>

#include "config/base/harmless.h"
#include "config/base/log.h"
#include "config/base/origin.h"
#include "config/descriptors/catalogue_config.h"
#include "config/descriptors/descriptor_table.h"
#include "config/descriptors/integer_descriptor.h"
#include "device/catalogue.h"
#include "device/format.h"
#include "mainstay/state/keeper.h"
#include "services/alarms/alarm_producer.h"
#include "services/product/product_features.h"

namespace actions {

namespace {

/// More commands than a device can have on its mind are a fault of whoever sends them.
constexpr size_t kMaxWaiting = 256;

unsigned int NumberOf(const vexa::Value& value)
{
    const auto* const number = std::get_if<unsigned int>(&value);
    return number ? *number : 0;
}

/// "Idle" and the like: no command.
bool IsAtRest(ParamDescriptor& descriptor, const vexa::Value& value)
{
    if (descriptor.HasClassName("volatile"))
        return false;  // every number is a command, the first one included
    if (auto* const number = dynamic_cast<IntegerDescriptor*>(&descriptor))
        return NumberOf(value) == number->GetFactoryDefault();
    const auto* const text = std::get_if<std::string>(&value);
    return text && text->empty();
}

/// The store as an action of the catalogue is to see it: with the command that is carried out, though a newer one may
/// have been set meanwhile, which stays then.
class CommandView : public vexa::CatalogueConfig {
  public:
    CommandView(Config& store, eParam_t command, unsigned int value)
        : m_store(store), m_command(command), m_value(value)
    {
    }

    using CatalogueConfig::GetParamDescriptor;
    using Config::Set;
    unsigned int Get(eParam_t id) override { return id == m_command ? m_value : m_store.Get(id); }
    eConfigID_t GetConfigID() override { return m_store.GetConfigID(); }
    timeval GetLastConfigUpdate() override { return m_store.GetLastConfigUpdate(); }
    ParamDescriptor* GetParamDescriptor(std::string name) override
    {
        return m_store.GetParamDescriptor(name);
    }
    std::list<eParam_t> GetParamIDs() override { return m_store.GetParamIDs(); }
    bool Set(eParam_t id, unsigned int value, timeval time) override
    {
        if (id == m_command && m_store.Get(id) != m_value) return true;
        return m_store.Set(id, value, time);
    }
    bool Get(eParam_t id, unsigned int& value) override { return m_store.Get(id, value); }
    bool Set(eParam_t id, std::string value, timeval time) override { return m_store.Set(id, value, time); }
    bool Get(eParam_t id, std::string& value) override { return m_store.Get(id, value); }

  private:
    Config& m_store;
    const eParam_t m_command;
    const unsigned int m_value;
};

bool HasOwnAction(ParamDescriptor& descriptor)
{
    return descriptor.HasClassName("action_param") && descriptor.GetAction();
}

}  // namespace

bool IsCommand(ParamDescriptor& descriptor)
{
    const bool isTransient = descriptor.GetPersistenceType() != ePersist &&
                             descriptor.GetRegisterType() == eRegister_Exclude &&
                             descriptor.GetFactoryResetType() == eFactoryReset_Exclude;
    if (!isTransient || descriptor.HasClassName("readonly") || descriptor.HasClassName("alarm")) return false;
    // Hidden ones are words between the device's own programs, but for this one.
    return !descriptor.HasClassName("hidden_param") || descriptor.GetParamID() == eParamID_SystemCommand;
}

bool IsBuiltIn(ParamDescriptor& descriptor)
{
    constexpr eParam_t kHandled[] = {eParamID_RegisterSave, eParamID_RegisterRecall,  eParamID_RegisterStore,
                                     eParamID_RegisterLoad, eParamID_FactorySettings, eParamID_Clear_Alarms};
    return std::ranges::find(kHandled, descriptor.GetParamID()) != std::end(kHandled) ||
           HasOwnAction(descriptor);
}

Actions::Actions(Config& store, Presets& presets, Programs& programs)
    : m_store(store),
      m_presets(presets),
      m_programs(programs),
      m_handlers{
          {eParamID_RegisterSave,
           [this](const Command& c) { m_presets.Save(NumberOf(c.value), c.snapshot); }},
          {eParamID_RegisterRecall, [this](const Command& c) { m_presets.Recall(NumberOf(c.value)); }},
          {eParamID_RegisterStore, [this](const Command& c) { m_presets.Store(NumberOf(c.value)); }},
          {eParamID_RegisterLoad, [this](const Command& c) { m_presets.Load(NumberOf(c.value)); }},
          {eParamID_FactorySettings, [this](const Command& c) { RestoreFactorySettings(c); }},
          {eParamID_Clear_Alarms, [this](const Command& c) { ClearAlarms(c); }},
      }
{
    ChooseHeard();
    m_thread = std::thread([this] { Run(); });  // first, for it may fail
    m_store.AddConfigEventListener(this);
}

Actions::~Actions()
{
    m_store.RemoveConfigEventListener(this);
    {
        vexa::MutexLock hold(m_lock);
        m_isEnding = true;
        m_changed.NotifyAll();
    }
    m_thread.join();
}

bool Actions::ParamChanged(eParam_t id, unsigned int value, timeval)
{
    return Hear(id, value);
}

bool Actions::ParamChanged(eParam_t id, std::string value, timeval)
{
    return Hear(id, std::move(value));
}

void Actions::ChooseHeard()
{
    std::set<eParam_t> followers;
    for (const eParam_t id : GetParamIDs()) {
        ParamDescriptor* const descriptor = FindDescriptor(id);
        if (!descriptor) continue;
        for (const eParam_t follower : descriptor->GetDependentParamIDs()) followers.insert(follower);
        if (IsCommand(*descriptor) || m_programs.Has(id))
            m_heard[id] = {descriptor, false, state::ReadValue(m_store, *descriptor).value_or(0U)};
    }
    for (const eParam_t id : followers)
        if (const auto found = m_heard.find(id); found != m_heard.end()) found->second.isFollower = true;
}

/// On the thread that sets the command: it is only noted here.
bool Actions::Hear(eParam_t id, vexa::Value value)
{
    const auto found = m_heard.find(id);
    if (found == m_heard.end()) return true;
    ParamDescriptor* const descriptor = found->second.descriptor;
    const bool isSame = std::exchange(found->second.value, value) == value;
    if (isSame && found->second.isFollower) return true;
    if (IsCommand(*descriptor) && IsAtRest(*descriptor, value)) return true;
    Command command{descriptor, std::move(value), vexa::CurrentOrigin(), {}};
    if (id == eParamID_RegisterSave && IsIdle()) command.snapshot = m_presets.Snapshot();
    m_presets.Announce(id, Outcome::kRunning);
    {
        vexa::MutexLock hold(m_lock);
        if (m_commands.size() < kMaxWaiting) {
            m_commands.push_back(std::move(command));
            m_changed.NotifyOne();
            return true;
        }
    }
    m_presets.Announce(id, Outcome::kFailed);
    const vexa::PeerLog limited;
    return vexa::Report("mainstay: %s is not carried out: too many commands wait\n",
                        vexa::Catalogue::NameOf(*descriptor).c_str());
}

bool Actions::IsIdle() const
{
    vexa::MutexLock hold(m_lock);
    return m_commands.empty() && !m_isBusy;
}

void Actions::Run()
{
    pthread_setname_np(pthread_self(), "ms-actions");
    vexa::MutexLock hold(m_lock);
    while (!m_isEnding || !m_commands.empty()) {
        m_isBusy = !m_commands.empty();
        if (!m_isBusy) {
            m_changed.Wait(m_lock);
            continue;
        }
        const Command command = std::move(m_commands.front());
        m_commands.pop_front();
        const vexa::MutexUnlock release(m_lock);
        const vexa::PeerLog limited;
        try {
            const auto handler = m_handlers.find(command.descriptor->GetParamID());
            if (handler != m_handlers.end())
                handler->second(command);
            else
                RunProgram(command);
        } catch (const std::exception& error) {
            vexa::Print("mainstay: %s: %s\n", vexa::Catalogue::NameOf(*command.descriptor).c_str(),
                        error.what());
        }
    }
}

void Actions::RestoreFactorySettings(const Command& command)
{
    const vexa::OriginScope origin("factory reset");
    CommandView view(m_store, command.descriptor->GetParamID(), NumberOf(command.value));
    const bool isWhole = command.descriptor->GetAction()(&view, command.descriptor);
    if (CProductFeatures::shouldEraseAllPresets()) m_presets.EraseAll();
    vexa::Print("mainstay: FactorySettings %s by %s %s\n",
                vexa::Format(*command.descriptor, command.value).c_str(), command.who.c_str(),
                isWhole ? "done" : "failed in part");
}

void Actions::ClearAlarms(const Command& command)
{
    const vexa::OriginScope origin("Clear_Alarms by " + command.who);
    for (const eParam_t id : m_store.GetParamIDs()) {
        ParamDescriptor* const descriptor = FindDescriptor(id);
        if (descriptor && descriptor->HasClassName("can_be_cleared")) AlarmProducer::clear(&m_store, id);
    }
    m_store.Set(eParamID_Clear_Alarms, 0U);
}

void Actions::RunProgram(const Command& command)
{
    ParamDescriptor& descriptor = *command.descriptor;
    if (HasOwnAction(descriptor)) {
        const vexa::OriginScope origin(vexa::Catalogue::NameOf(descriptor) + " by " + command.who);
        descriptor.GetAction()(&m_store, &descriptor);
        return;
    }
    const ProgramAction* const action = m_programs.Find(descriptor.GetParamID(), NumberOf(command.value));
    if (!action) {
        if (IsCommand(descriptor)) NoteUnserved(command);
        return;
    }
    if (action->run.empty()) return;
    const std::string value = std::holds_alternative<std::string>(command.value)
                                  ? std::get<std::string>(command.value)
                                  : std::to_string(NumberOf(command.value));
    const std::string name = vexa::Catalogue::NameOf(descriptor);
    if (!m_programs.Start(*action, {name, value, vexa::Format(descriptor, command.value), command.who,
                                    state::Shown(descriptor.GetParamID(), command.value)}))
        vexa::Print("mainstay: %s is not carried out: too many wait for their program\n", name.c_str());
}

void Actions::NoteUnserved(const Command& command)
{
    const std::string text = vexa::Catalogue::NameOf(*command.descriptor) + " = " +
                             vexa::Harmless(state::Shown(command.descriptor->GetParamID(), command.value)) +
                             " by " + command.who +
                             ": stored and announced, nothing else: mainstay.conf has no action";
    vexa::Print("mainstay: %s\n", text.c_str());
    vexa::MutexLock hold(m_lock);
    m_unserved[command.descriptor->GetParamID()] = text;
}

std::vector<std::string> Actions::Notes() const
{
    vexa::MutexLock hold(m_lock);
    std::vector<std::string> notes;
    for (const auto& [param, text] : m_unserved) notes.push_back(text);
    return notes;
}

}  // namespace actions
