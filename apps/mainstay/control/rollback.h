/// Rollback: changes that have to be confirmed, or else are undone.
#pragma once

#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "config/base/deadline.h"
#include "config/base/mutex.h"
#include "config/param_ids.h"
#include "mainstay/control/control.h"

class Config;

namespace control {

/// Keeps the values from before a change, and puts them back when nobody confirms in time: the change may have cut
/// the operator off. When an unconfirmed change is undone, so are those that were held after it, the newest first:
/// what they kept are values of the change before. Thread: any; one makes and deletes it.
class Rollback {
  public:
    /// Holds at a time: more than operators, and a limit for a program that repeats itself.
    static constexpr size_t kMaxHolds = 32;
    static constexpr unsigned int kMaxSeconds = 86'400;

    /// @param store  borrowed. @param model  its parameters.
    Rollback(Config& store, std::string model);
    /// Puts back at once what was not confirmed.
    ~Rollback();
    Rollback(const Rollback&) = delete;
    Rollback& operator=(const Rollback&) = delete;

    /// Adds the requests "hold" and "confirm".
    void AddTo(Handlers& handlers);

  private:
    struct Value {
        eParam_t id;
        std::variant<unsigned int, std::string> value;
        bool isSetting;
    };
    struct Hold {
        unsigned int number;
        vexa::Deadline end;
        std::string who;
        std::vector<Value> values;
    };

    Json AddHold(const Json& request, const Peer& who);
    Json Confirm(const Json& request);
    Value Parse(const Json& entry) const;
    void Run();
    bool TakeOverdue(std::vector<Hold>& overdue);
    void PutBack(const std::vector<Hold>& holds, const char* why);
    size_t PutBack(const std::vector<Value>& values);
    bool Has(const Value& value) const;

    Config& m_store;
    const std::string m_model;
    vexa::Mutex m_lock;
    vexa::CondVar m_changed;
    std::vector<Hold> m_holds VEXA_GUARDED_BY(m_lock);  // the newest last
    unsigned int m_lastNumber VEXA_GUARDED_BY(m_lock) = 0;
    bool m_stop VEXA_GUARDED_BY(m_lock) = false;
    std::thread m_thread;
};

}  // namespace control
