/// Config: the interface to a set of parameters, wherever they live.
///
/// A program that talks to a device is better off with vexa::Device (device/device.h): it connects again by
/// itself, tells 0 from "no such parameter", "not connected" and "refused", and never ends the process. Config
/// is for the programs of the device itself: for stores, for what serves them, and for preconditions.
///
/// A caller gets a Config from the connector (config/access/connector/config_factory_impl.h) for a URI, works
/// only through this interface, and gives it back there. Descriptors (config/descriptors/param_descriptor.h)
/// describe the parameters.
#pragma once

#include <sys/time.h>

#include <list>
#include <string>
#include <vector>

#include "config/base/export.h"
#include "config/config_event.h"
#include "config/config_event_listener.h"
#include "config/param_ids.h"

class ParamDescriptor;
class Serializable;
namespace vexa::config {
class UpdatePrecondition;
}

/// Reads, changes and watches parameters.
///
/// Results: of a store, true or a value on success; false, null or 0 otherwise, mostly after one line on standard
/// error. Clients of other processes say less, and say it at the operation; vexa::LastAnswer
/// (config/access/protocol/connection.h) tells what became of the request, and vexa::IsReachable
/// (config/access/connector/reachability.h) whether the server is there. They use the descriptors of this process,
/// whatever the model of the server. A TCP or UDP client whose Get is not answered within a minute ends the
/// process; one whose server was restarted stays lost. Nothing throws.
/// Thread: as the implementation says; those of this library allow any thread.
/// The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT Config {
  public:
    /// The kind of lock for Lock. No implementation gives it a meaning.
    enum eParamLock_t : uint32_t { eParamLock_Shared, eParamLock_Exclusive };

    virtual ~Config() = default;

    /// Sets a number, stamped with the current time.
    /// @return of a store, over message queues and over UDP: true when the value was stored, perhaps corrected into
    /// its range. Over TCP nothing answers: true says that it was sent, refused or not; read it to know. Of a cache:
    /// as of its client, and true when it has the value already.
    virtual bool Set(eParam_t id, unsigned int value);
    /// The number; 0 when there is none, when it is refused, and when no answer comes.
    virtual unsigned int Get(eParam_t id) = 0;
    /// The configuration instance, the number behind "configid=" in its URI.
    virtual eConfigID_t GetConfigID() = 0;
    /// When a value last changed, over message queues; zero elsewhere.
    virtual timeval GetLastConfigUpdate() = 0;
    /// Borrowed from the registry; null for a parameter that does not exist.
    virtual ParamDescriptor* GetParamDescriptor(eParam_t id) = 0;
    /// By symbolic name, "eParamID_Take".
    virtual ParamDescriptor* GetParamDescriptor(std::string paramIDName) = 0;
    /// All parameters, ascending.
    virtual std::list<eParam_t> GetParamIDs() = 0;
    /// @param time  of the change; listeners get it unchanged, but for message queues, where the daemon's counts.
    virtual bool Set(eParam_t id, unsigned int value, timeval time) = 0;
    /// @param value  a store leaves it untouched on failure. A client of another process, and a cache, write what
    /// Get(id) returns, and answer false for a 0, stored or not.
    virtual bool Get(eParam_t id, unsigned int& value) = 0;
    /// The same for a text. No length is enforced. Over TCP and UDP nothing answers: true says that it was sent; one
    /// that does not fit into a request is a programming error there, and ends the process.
    virtual bool Set(eParam_t id, std::string value, timeval time) = 0;
    virtual bool Set(eParam_t id, std::string value);
    /// @return whether there was one, over every transport. @param value  untouched without.
    virtual bool Get(eParam_t id, std::string& value) = 0;
    /// The stored object itself, which stays the store's; null when there is none, and for clients.
    virtual Serializable* GetSerializable(eParam_t) { return nullptr; }
    /// Refused by every implementation.
    virtual bool SetSerializable(eParam_t, Serializable*) { return false; }
    /// Bytes of a data parameter. Only for implementations that carry data values: stores and UDP clients. Calling
    /// the default, as over TCP and message queues, is a programming error and ends the process, in release builds
    /// as well.
    virtual bool GetData(eParam_t id, std::string& data);
    virtual bool SetData(eParam_t id, std::string& data, timeval time);
    virtual bool SetData(eParam_t id, std::string& data);

    /// Calls the listener at every change from now on. The forms with parameters ask for a filter: an
    /// implementation may ignore it and report every parameter, as stores, TCP and UDP clients do, or refuse it, as
    /// clients of message queues do. The list is refused by all.
    /// The listener is borrowed until it is removed. Null is refused.
    virtual bool AddConfigEventListener(ConfigEventListener*) { return false; }
    virtual bool AddConfigEventListener(eParam_t, ConfigEventListener*) { return false; }
    virtual bool AddConfigEventListener(std::list<eParam_t>, ConfigEventListener*) { return false; }
    /// Waits for a running callback of another thread: when it has returned, the listener is not called again
    /// and may be deleted. Hold no lock that the callback takes.
    virtual bool RemoveConfigEventListener(ConfigEventListener*) { return false; }
    /// Waits for the next change, over message queues only, where the numbers have no effect: it waits until one
    /// comes or the daemon is gone. Elsewhere false, at once.
    virtual bool WaitForConfigEvent(ConfigEvent&, long, long) { return false; }
    /// Empty, for every implementation: ask each descriptor for HasClassName instead.
    virtual std::vector<ParamDescriptor*> GetDescriptorsByClassName(std::string) { return {}; }

    /// @{ Locks and transactions exist in the interface only: every implementation answers false.
    virtual bool Lock(eParam_t, eParamLock_t) { return false; }
    virtual bool Unlock(eParam_t) { return false; }
    virtual bool StartTransaction(std::vector<eParam_t>, unsigned int&) { return false; }
    virtual bool Commit(unsigned int) { return false; }
    virtual bool Rollback(unsigned int) { return false; }
    /// @}

    /// The precondition is asked before every change, and the store owns it from now on. Add before concurrent
    /// writes.
    virtual bool AddUpdatePrecondition(vexa::config::UpdatePrecondition*) { return false; }
    /// The precondition belongs to the caller again.
    virtual bool RemoveUpdatePrecondition(vexa::config::UpdatePrecondition*) { return false; }
};

/// The interface before Config, kept for its place in old code; nothing implements it.
class VEXA_EXPORT ConfigLegacy {
  public:
    virtual ~ConfigLegacy() = default;
    /// Has no meaning.
    virtual bool Load() = 0;
    /// Has no meaning.
    virtual bool Store() = 0;
};
