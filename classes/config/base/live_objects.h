/// LiveObjects: which objects of a class exist, and whether they are in use.
#pragma once

#include <map>
#include <utility>

#include "config/base/mutex.h"
#include "config/base/no_destructor.h"

namespace vexa {

/// The system starts threads for objects that may be gone by then: such a thread finds nothing here. An
/// object is deleted only after its last use has ended. Objects are told apart by their address. Thread: any.
template <class Object>
class LiveObjects {
  public:
    /// Keeps an object for the life of a scope, if it is still there.
    class Use {
      public:
        /// @param object  may be gone, or null.
        explicit Use(Object* object) : m_object(Registry().Enter(object) ? object : nullptr) {}
        /// Deletes the object if it was left to its users and this is the last one.
        ~Use()
        {
            if (m_object && Registry().Leave(m_object)) delete m_object;
        }
        Use(Use&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        Use& operator=(Use&&) = delete;

        explicit operator bool() const { return m_object != nullptr; }
        Object* operator->() const { return m_object; }

      private:
        Object* m_object;
    };

    static void Add(Object* object) { Registry().AddEntry(object); }
    /// No further use begins. @return false when the object is gone, or ends already.
    static bool Close(Object* object) { return Registry().CloseEntry(object); }
    /// Waits until a closed object has no users. Must not be called by one of them, which would wait for
    /// itself.
    static void WaitUntilUnused(Object* object) { Registry().WaitForUsers(object); }
    /// Leaves the deletion of the closed object to its last user.
    static void LeaveToUsers(Object* object) { Registry().LeaveEntry(object); }
    /// For the object's destructor.
    static void Remove(Object* object) { Registry().RemoveEntry(object); }

  private:
    struct Entry {
        unsigned int users = 0;
        bool closed = false;
        bool leftToUsers = false;
    };

    class Table {
      public:
        bool Enter(Object* object)
        {
            const MutexLock hold(m_lock);
            const auto found = m_entries.find(object);
            if (found == m_entries.end() || found->second.closed) return false;
            ++found->second.users;
            return true;
        }
        /// @return whether the caller has to delete the object.
        bool Leave(Object* object)
        {
            const MutexLock hold(m_lock);
            Entry& entry = m_entries[object];
            if (--entry.users > 0) return false;
            m_userLeft.NotifyAll();
            return entry.leftToUsers;
        }
        void AddEntry(Object* object)
        {
            const MutexLock hold(m_lock);
            m_entries[object] = {};
        }
        bool CloseEntry(Object* object)
        {
            const MutexLock hold(m_lock);
            const auto found = m_entries.find(object);
            return found != m_entries.end() && !std::exchange(found->second.closed, true);
        }
        void WaitForUsers(Object* object)
        {
            const MutexLock hold(m_lock);
            const Entry& entry = m_entries[object];
            while (entry.users > 0) m_userLeft.Wait(m_lock);
        }
        void LeaveEntry(Object* object)
        {
            const MutexLock hold(m_lock);
            m_entries[object].leftToUsers = true;
        }
        void RemoveEntry(Object* object)
        {
            const MutexLock hold(m_lock);
            m_entries.erase(object);
        }

      private:
        Mutex m_lock;
        CondVar m_userLeft;
        std::map<Object*, Entry> m_entries VEXA_GUARDED_BY(m_lock);
    };

    static Table& Registry()
    {
        static NoDestructor<Table> table;  // notifications fire while the process ends
        return *table;
    }
};

}  // namespace vexa
