/// ClassFactory: makes serializable objects from their class identifier.
#pragma once

#include "config/base/export.h"
#include "config/base/mutex.h"
#include "config/streams/class_id.h"
#include "config/streams/serializable.h"

/// The header of an object in a stream: its class identifier.
struct VEXA_EXPORT ClassFactoryHeader {
    eClassID_t classID{};  ///< of the object that follows
};

/// One factory makes the objects of one class. The static operations are the process-wide registry of
/// factories.
///
/// Classes 0, 1, 6 and 7 are handed out shared: every Create of that class answers with the same object,
/// which its factory owns and which holds the content that was read last. Hold PrototypeMutex() from Create
/// until the content is copied. Objects of other classes belong to the caller. Thread: the registry may be
/// used from any thread.
class VEXA_EXPORT ClassFactory {
  public:
    /// @param id  of the class whose objects it makes.
    explicit ClassFactory(eClassID_t id) : m_classID(id) {}
    virtual ~ClassFactory() = default;
    /// The class whose objects it makes.
    virtual eClassID_t GetClassID() { return m_classID; }
    /// @return null when it cannot be made.
    virtual Serializable* Create() = 0;

    /// Registers the standard factories, unless any factory is registered already. So call it before you
    /// register other factories. Without memory for all of them none is registered, and the next call tries
    /// again.
    static void InitFactories();
    /// Registers a factory in place of an earlier one for its class. The factory must have been made with new
    /// and belongs to the registry from now on; the one that it replaces is kept, since its object may be in
    /// use.
    static void Register(ClassFactory* factory);
    /// An object of this class, labelled with it. An unknown class prints one line and gives null; so does,
    /// without a line, a factory that throws.
    static Serializable* Create(eClassID_t id);
    /// Deletes every registered factory, for the very end of the process: nothing can be created afterwards,
    /// and the standard factories are not registered again.
    static void DestroyFactories();

    /// Whether an object of Create still belongs to its factory: one of classes 0, 1, 6 and 7, unless a factory
    /// that makes new objects was registered for it.
    static bool IsShared(Serializable* object);
    /// Gives an object of Create back: deletes it unless it is shared. Null is allowed.
    static void Release(Serializable* object);
    /// Held from Create until the content of a shared object has been copied. Recursive, because objects
    /// nest.
    static vexa::RecursiveMutex& PrototypeMutex();

  private:
    /// Runs `registerAll` unless a factory is registered. All of its factories are registered or none.
    static void RegisterIfEmpty(void (*registerAll)());

    const eClassID_t m_classID;
};
