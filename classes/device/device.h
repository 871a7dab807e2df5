/// vexa::Device: the client that programs are written with. It connects by itself, again and again, knows the
/// model and the values of its device, and tells what changes; it never ends the process, and never shows a
/// value that may be old.
///
///     vexa::Device recorder("rec-7");
///     const auto watch = recorder.Watch({"Clip*"}, [](const vexa::Change& change) {
///         printf("%s = %s\n", change.name.c_str(), change.Text().c_str());
///     });
///     if (!recorder.WaitUntilInStep(std::chrono::seconds(2))) puts(recorder.Status().reason.c_str());
///     const vexa::SetResult result = recorder.Set("FanSpeed", "70 %");
///     if (!result) puts(result.reason.c_str());
#pragma once

#include <sys/time.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/base/export.h"
#include "config/param_ids.h"
#include "device/catalogue.h"
#include "device/value.h"

namespace vexa {

/// How a Device stands to its device.
enum class DeviceState : uint8_t {
    kConnecting,  ///< not connected yet
    kInStep,      ///< all values are known and follow the device
    kLost,        ///< was in step, and will be again when the device comes back
    kRefused,     ///< the address is wrong, or the device does not want; the latter is tried again
    kOtherModel,  ///< not the model that was asked for, or not the one it was before
};
/// "connecting", "in step", "lost", "refused", "other model".
VEXA_EXPORT const char* NameOf(DeviceState state);

/// Why there is no value, or no connection.
enum class Failure : uint8_t {
    kNone,
    kNoSuchParameter,  ///< the device's model has no such parameter
    kNoValue,  ///< the device has none for it, or this transport carries none: data over TCP and queues
    kNotConnected,
    kTimedOut,
};

/// What is known of the connection. A copy.
struct DeviceStatus {
    DeviceState state = DeviceState::kConnecting;  ///< of the connection, at the time of the call
    /// When it became that.
    std::chrono::system_clock::time_point since = std::chrono::system_clock::now();
    Failure failure = Failure::kNone;  ///< why it is not in step: kNotConnected or kTimedOut
    std::string reason;                ///< the same for people: "Connection refused"; empty in step
    std::string model;                 ///< "OAK"; empty until the device has told it
    std::string software;              ///< the version that the device tells; likewise
    bool isModelAssumed = false;       ///< the device did not tell it: see DeviceOptions::assumesModel
};

/// What a Get found.
struct GetResult {
    std::optional<Value> value;        ///< nothing when `failure` says why
    Failure failure = Failure::kNone;  ///< why there is no value
    std::string reason;                ///< for people; empty with a value

    /// Whether there is a value.
    explicit operator bool() const { return value.has_value(); }
};

/// What became of a Set.
struct SetResult {
    /// From the value before, the Set and the value after.
    enum class Outcome : uint8_t {
        kStored,
        kCorrected,  ///< another value is stored
        kRefused,    ///< nothing was changed
        kNotSent,    ///< nothing was changed: `failure` says why
        kUnknown,    ///< sent, but what became of it was not seen
    };
    Outcome outcome = Outcome::kNotSent;  ///< see there
    Failure failure = Failure::kNone;     ///< why it was not sent
    std::optional<Value> now;             ///< what the device holds, if it was read
    std::string reason;                   ///< for people; empty when it was stored

    /// Whether exactly this value is stored.
    explicit operator bool() const { return outcome == Outcome::kStored; }
};

/// One change of a parameter. A copy.
struct Change {
    /// How it was noticed.
    enum class Kind : uint8_t {
        kEvent,       ///< the device told it
        kDifference,  ///< found after a connection, or where changes were missing
        kInitial,     ///< the value at the beginning
    };
    eParam_t id{};                               ///< the parameter
    std::string name;                            ///< "FanSpeed"
    Value value = 0u;                            ///< the new value
    Kind kind = Kind::kEvent;                    ///< see there
    timeval time{};                              ///< when it changed, or when this was noticed
    bool isDevicesTime = false;                  ///< by the clock of the device
    std::shared_ptr<const Catalogue> catalogue;  ///< of the device's model at that time
    /// Changes of any parameters that this receiver was too slow for, since the change that it got before: each
    /// was followed by a newer one of its parameter.
    uint64_t skipped = 0;

    /// As people read it: "70 %".
    VEXA_EXPORT std::string Text() const;
};

/// Ends what it stands for with its scope: afterwards no callback runs any more, unless this is destroyed in
/// that callback. It may outlive its device. Thread: one at a time.
class VEXA_EXPORT Subscription {
  public:
    Subscription() = default;
    /// For the library.
    explicit Subscription(std::shared_ptr<void> what) : m_what(std::move(what)) {}

  private:
    std::shared_ptr<void> m_what;
};

class DeviceWorker;
class Feed;

/// Changes for whoever fetches them. Like a listener that lags, a queue that is not emptied keeps the newest
/// change of each parameter. Thread: one at a time.
class VEXA_EXPORT ChangeQueue {
  public:
    /// For the library; programs ask Device::Changes.
    explicit ChangeQueue(std::shared_ptr<Feed> feed) : m_feed(std::move(feed)) {}

    /// The next change, for which it waits. @return nothing when none comes in time.
    std::optional<Change> Next(std::chrono::milliseconds timeout);
    /// Readable while there are changes, for poll.
    int Descriptor() const;

  private:
    std::shared_ptr<Feed> m_feed;
};

/// What a Device is told beside the address.
struct DeviceOptions {
    std::string model;                        ///< the only one that will do; empty: any
    bool assumesModel = false;                ///< a device that names no known model is taken for that one
    std::chrono::milliseconds timeout{5000};  ///< for an answer of the device
    std::chrono::milliseconds probeInterval{5000};  ///< of a device that is silent
};

/// One device. Operations do not throw but for std::bad_alloc. Thread: any. Callbacks come on one thread of the
/// device; they may use it.
class VEXA_EXPORT Device {
  public:
    /// Returns at once. @param address  see device/address.h; one that is not understood is a refusal.
    explicit Device(const std::string& address, DeviceOptions options = {});
    /// May wait for a look-up of the host's name. Not in a callback.
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// A copy of the present status.
    DeviceStatus Status() const;
    /// @return at once false when the address is wrong.
    bool WaitUntilInStep(std::chrono::milliseconds timeout) const;
    /// Of the device's model; null until it is known. Another one after the device came back as another model.
    std::shared_ptr<const Catalogue> Parameters() const;

    /// Asks the device.
    GetResult Get(eParam_t id);
    GetResult Get(const std::string& name);
    /// What the device told last, without asking, as long as it is in step. A parameter that changes without
    /// telling (class name "volatile") is asked for.
    GetResult Kept(eParam_t id);
    GetResult Kept(const std::string& name);
    /// Several at once, in one round trip. @return one result for each.
    std::vector<GetResult> GetMany(const std::vector<eParam_t>& ids);

    /// Sets and reads back, in one round trip.
    SetResult Set(eParam_t id, const Value& value);
    /// @param text  as people write it: "70 %", "ProRes 422", "10.0.0.9".
    SetResult Set(const std::string& name, const std::string& text);
    /// Checks all values before the first is sent: if one cannot be, none is. Then sends them in this order.
    /// @return one result for each.
    std::vector<SetResult> SetMany(const std::vector<std::pair<eParam_t, Value>>& settings);

    /// @param patterns  of names, as of files: "Clip*". None: all. The values of the beginning come first.
    [[nodiscard]] Subscription Watch(const std::vector<std::string>& patterns,
                                     std::function<void(const Change&)> onChange, bool wantsInitial = true);
    /// The same as a queue, for programs with a loop of their own.
    [[nodiscard]] ChangeQueue Changes(const std::vector<std::string>& patterns = {},
                                      bool wantsInitial = true);
    /// Called with the present status first.
    [[nodiscard]] Subscription WatchStatus(std::function<void(const DeviceStatus&)> onStatus);

    /// The longest text that this device takes over its transport, in bytes.
    size_t LongestText() const;

  private:
    const std::unique_ptr<DeviceWorker> m_worker;
};

}  // namespace vexa
