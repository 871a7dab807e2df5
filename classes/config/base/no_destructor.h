/// NoDestructor: an object that is never destroyed, because threads may still use it while the process ends.
#pragma once

#include <new>
#include <utility>

namespace vexa {

/// For function-local and namespace-level objects. Thread: as the object.
template <class Object>
class NoDestructor {
  public:
    template <class... Arguments>
    explicit NoDestructor(Arguments&&... arguments)
    {
        new (m_storage) Object(std::forward<Arguments>(arguments)...);
    }
    NoDestructor(const NoDestructor&) = delete;
    NoDestructor& operator=(const NoDestructor&) = delete;

    Object& operator*() { return *std::launder(reinterpret_cast<Object*>(m_storage)); }
    Object* operator->() { return &**this; }

  private:
    alignas(Object) unsigned char m_storage[sizeof(Object)];
};

}  // namespace vexa
