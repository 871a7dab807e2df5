/// Link: how a Device reaches its device. One class for each transport.
#pragma once

#include <sys/time.h>

#include <memory>
#include <string>
#include <vector>

#include "config/base/deadline.h"
#include "config/param_ids.h"
#include "device/address.h"
#include "device/value.h"

namespace vexa {

struct LinkRequest {
    enum class Kind : uint8_t { kGetNumber, kGetText, kGetData, kSet, kSetData };
    Kind kind;
    eParam_t id;
    Value value = 0u;  ///< to be set

    bool IsSet() const { return kind == Kind::kSet || kind == Kind::kSetData; }
};

struct LinkReply {
    enum class Kind : uint8_t {
        kNone,     ///< none came in time, or none is sent to such a request
        kGiven,    ///< the value; of a Set: it was accepted
        kRefused,  ///< the device answered with an error
    };
    Kind kind = Kind::kNone;
    Value value = 0u;
};

/// Hears what happens on a link. Called by the link's own thread inside its operations, or, where a transport
/// delivers by itself, by another one.
class LinkEvents {
  public:
    virtual ~LinkEvents() = default;
    /// @param time  the device's; zero when the transport does not tell it.
    virtual void Changed(eParam_t id, Value value, timeval time) = 0;
    /// What was heard last may be old.
    virtual void ChangesMissing() = 0;
};

/// Why an operation of a link did not succeed.
struct LinkFailure {
    enum class Kind : uint8_t {
        kLost,      ///< no connection, or none any more
        kRefused,   ///< there is a device, which does not want
        kTimedOut,  ///< nothing came in time
    };
    Kind kind = Kind::kLost;
    std::string reason;  ///< "Connection refused"
};

/// Every wait ends with its deadline, and when the descriptor `wake` becomes readable. Thread: one at a time.
class Link {
  public:
    virtual ~Link() = default;

    /// Connects and registers for changes; looks the host up first.
    virtual bool Open(const Deadline& deadline, int wake, LinkFailure& failure) = 0;
    /// Sends all requests before it waits for the first reply. @param replies  one for each request.
    /// @return false when not all replies came; those that came are in place.
    virtual bool Exchange(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                          const Deadline& deadline, int wake, LinkFailure& failure) = 0;
    /// Readable when there is something to receive, for poll; -1: never.
    virtual int Descriptor() const = 0;
    /// Passes on the changes that are there. @return false when the link is lost.
    virtual bool Receive(LinkFailure& failure) = 0;

    /// Whether the device tells changes; else all values have to be read again and again.
    virtual bool HearsChanges() const = 0;
};

struct LinkTraits {
    bool isOrdered;      ///< requests are carried out in the order in which they were sent
    bool carriesData;    ///< values of data and alarm parameters
    size_t longestText;  ///< that can be set and read back, in bytes
};
LinkTraits TraitsOf(Transport transport);
/// @param events  outlives the link.
std::unique_ptr<Link> MakeLink(const DeviceAddress& address, LinkEvents& events);

}  // namespace vexa
