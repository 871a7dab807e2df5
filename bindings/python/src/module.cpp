/// The extension module vexa._vexa: vexa::Device for Python. What Python alone does, as asyncio, is in vexa/__init__.py.
///
/// The interpreter's lock is given back while anything may wait. No callback of the library runs Python: changes are
/// fetched from queues.
#include <poll.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "parameter.h"
#include "unlocked.h"
#include "values.h"

#include <config/version.h>
#include <device/address.h>
#include <device/device.h>
#include <device/format.h>

namespace py = pybind11;

namespace vexa::python {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

/// How long a wait goes on without a look for signals, as that of Ctrl-C.
constexpr milliseconds kSlice{100};

/// Without a time, for ever.
using Seconds = std::optional<double>;

Clock::time_point DeadlineOf(Seconds timeout)
{
    constexpr double kLongest = 1e8;  // three years: what comes after that fits no clock
    if (timeout && std::isnan(*timeout)) throw py::value_error("a timeout is a number of seconds");
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                              std::clamp(timeout.value_or(kLongest), 0.0, kLongest)));
}

/// Waits in slices without the interpreter's lock, and lets its signal handlers run in between.
/// @param wait  takes how long; whether it has ended well. @return false when the time is up.
template <class Wait>
bool WaitInSlices(Seconds timeout, Wait wait)
{
    const auto deadline = DeadlineOf(timeout);
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        const bool isDone = [&] {
            const Unlocked unlocked;
            return wait(std::clamp(left, milliseconds(0), kSlice));
        }();
        if (isDone) return true;
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (Clock::now() >= deadline) return false;
    }
}

// --- failures ---

/// An exception of vexa/errors.py.
[[noreturn]] void Raise(const char* type, const py::object& argument)
{
    const py::object error = py::module_::import("vexa.errors").attr(type);
    PyErr_SetObject(error.ptr(), argument.ptr());
    throw py::error_already_set();
}

[[noreturn]] void Raise(Failure failure, const std::string& reason)
{
    switch (failure) {
        case Failure::kNoSuchParameter:
            Raise("UnknownParameter", py::str(reason));
        case Failure::kNoValue:
            Raise("NoValue", py::str(reason));
        case Failure::kTimedOut:
            Raise("TimedOut", py::str(reason));
        case Failure::kNotConnected:
        case Failure::kNone:
            break;
    }
    Raise("NotConnected", py::str(reason));
}

/// For what was not sent because of the connection.
void RaiseIfNotAsked(const SetResult& result)
{
    if (result.outcome == SetResult::Outcome::kNotSent && result.failure != Failure::kNone)
        Raise(result.failure, result.reason);
}

// --- results ---

struct Outcome {
    SetResult result;
    std::shared_ptr<const Catalogue> catalogue;
    ParamDescriptor* descriptor;

    py::object Now() const { return result.now ? ToPython(*descriptor, *result.now) : py::none(); }
    py::object Text() const
    {
        if (!result.now) return py::none();
        return DecodedText(Format(*descriptor, *result.now));
    }
    std::string Show() const
    {
        const std::string reason = result.reason.empty() ? "" : ": " + result.reason;
        return "<vexa.SetResult " + py::str(py::cast(result.outcome)).cast<std::string>() + reason + ">";
    }
};

const char* NameOf(Change::Kind kind)
{
    switch (kind) {
        case Change::Kind::kDifference:
            return "difference";
        case Change::Kind::kInitial:
            return "initial";
        case Change::Kind::kEvent:
            break;
    }
    return "event";
}

py::object ValueOf(const Change& change)
{
    return ToPython(*change.catalogue->Find(change.id), change.value);
}

/// An aware datetime.
py::object DateTimeOf(double seconds)
{
    const py::module_ datetime = py::module_::import("datetime");
    return datetime.attr("datetime").attr("fromtimestamp")(seconds, datetime.attr("timezone").attr("utc"));
}

py::object TimeOf(const Change& change)
{
    return DateTimeOf(static_cast<double>(change.time.tv_sec) +
                      1e-6 * static_cast<double>(change.time.tv_usec));
}

py::object SinceOf(const DeviceStatus& status)
{
    return DateTimeOf(std::chrono::duration<double>(status.since.time_since_epoch()).count());
}

// --- changes ---

/// Thread: any, with the interpreter's lock; one of them at a time waits.
class Watch {
  public:
    explicit Watch(ChangeQueue queue) : m_queue(std::move(queue)) {}

    std::optional<Change> Next(Seconds timeout)
    {
        std::optional<Change> change;
        WaitInSlices(timeout, [&](milliseconds slice) {
            if (m_isClosed) return true;
            change = m_queue.Next(slice);
            return change.has_value();
        });
        return change;
    }
    Change NextOrStop()
    {
        auto change = Next(std::nullopt);
        if (!change) throw py::stop_iteration();
        return *std::move(change);
    }
    int Descriptor() const { return m_queue.Descriptor(); }
    void Close() { m_isClosed = true; }
    bool IsClosed() const { return m_isClosed; }

  private:
    ChangeQueue m_queue;
    std::atomic<bool> m_isClosed{false};
};

// --- the device ---

using Names = std::vector<std::string>;

/// Thread: any, with the interpreter's lock.
class PythonDevice {
  public:
    PythonDevice(std::string address, std::optional<std::string> model, double timeout)
        : m_address(std::move(address)), m_timeout(timeout)
    {
        if (!(timeout > 0 && timeout < 1e6)) throw py::value_error("a timeout is a number of seconds");
        DeviceOptions options;
        options.model = model.value_or("");
        options.timeout = std::chrono::ceil<milliseconds>(std::chrono::duration<double>(timeout));
        // Its end waits for its thread: without the interpreter's lock, whichever thread is the last that uses it.
        m_device = {new Device(m_address, options), [](Device* device) {
                        std::optional<Unlocked> unlocked;
                        if (PyGILState_Check() != 0) unlocked.emplace();
                        delete device;
                    }};
        std::string reason;
        m_isAddress = DeviceAddress::Parse(m_address, reason).has_value();
    }
    PythonDevice(const PythonDevice&) = delete;
    PythonDevice& operator=(const PythonDevice&) = delete;

    const std::string& Address() const { return m_address; }

    void Close()
    {
        m_isClosed = true;
        m_device.reset();
    }
    bool IsClosed() const { return m_isClosed; }

    DeviceStatus Status() const { return Open()->Status(); }
    bool Wait(Seconds timeout) const
    {
        const auto device = Open();
        WaitInSlices(timeout ? timeout : m_timeout, [&](milliseconds slice) {
            return device->WaitUntilInStep(slice) || !m_isAddress || m_isClosed;
        });
        return device->Status().state == DeviceState::kInStep;
    }

    /// Of the device's model. Waits until the device is in step for the first time: its program has just made it.
    std::shared_ptr<const Catalogue> Parameters()
    {
        if (!m_wasInStep) m_wasInStep = Wait(std::nullopt);
        const auto device = Open();
        auto catalogue = device->Parameters();
        if (!catalogue) Raise(Failure::kNotConnected, "not connected: " + device->Status().reason);
        return catalogue;
    }

    ParamDescriptor& Find(const Catalogue& catalogue, const std::string& name) const
    {
        if (ParamDescriptor* const descriptor = catalogue.Find(name)) return *descriptor;
        std::string reason = "no parameter \"" + name + "\" on model " + catalogue.Model();
        const Names similar = catalogue.Similar(name);
        for (size_t i = 0; i < similar.size(); ++i) reason += (i == 0 ? "; similar: " : ", ") + similar[i];
        Raise(Failure::kNoSuchParameter, reason);
    }

    /// What the device told last.
    py::object Item(const std::string& name) { return Got(name, kKept, ToPython); }
    py::object Read(const std::string& name)
    {
        return Got(
            name, [](Device& device, eParam_t id) { return device.Get(id); }, ToPython);
    }
    py::object Text(const std::string& name)
    {
        return Got(name, kKept, [](ParamDescriptor& descriptor, const Value& value) {
            return DecodedText(Format(descriptor, value));
        });
    }

    py::dict Values(const Names& patterns)
    {
        return Many(
            patterns, [](ParamDescriptor&, Value&) {}, ToPython);
    }
    py::dict Texts(const Names& patterns)
    {
        return Many(
            patterns, [](ParamDescriptor& descriptor, Value& value) { value = Format(descriptor, value); },
            [](ParamDescriptor&, const Value& text) { return DecodedText(std::get<std::string>(text)); });
    }

    Outcome Set(const std::string& name, const py::handle& value)
    {
        const auto catalogue = Parameters();
        ParamDescriptor& descriptor = Find(*catalogue, name);
        Outcome outcome{{}, catalogue, &descriptor};
        const auto meant = FromPython(descriptor, value, outcome.result.reason);
        if (!meant) return outcome;
        const auto device = Open();
        {
            const Unlocked unlocked;
            outcome.result = device->Set(descriptor.GetParamID(), *meant);
        }
        RaiseIfNotAsked(outcome.result);
        return outcome;
    }

    /// In the order in which values have an effect, whatever the order of the dictionary. By the names as given.
    std::vector<std::pair<std::string, Outcome>> SetMany(const py::dict& settings)
    {
        const auto catalogue = Parameters();
        std::vector<ParamDescriptor*> descriptors;
        std::vector<std::pair<std::string, Outcome>> outcomes;
        std::map<eParam_t, Value> meant;
        for (const auto& [key, value] : settings) {
            const auto name = py::cast<std::string>(key);
            ParamDescriptor& descriptor = Find(*catalogue, name);
            if (std::ranges::find(descriptors, &descriptor) != descriptors.end())
                throw py::value_error(name + " is named twice");
            descriptors.push_back(&descriptor);
            Outcome outcome{{}, catalogue, &descriptor};
            if (auto each = FromPython(descriptor, value, outcome.result.reason))
                meant.emplace(descriptor.GetParamID(), *std::move(each));
            outcomes.emplace_back(name, std::move(outcome));
        }
        if (meant.size() == outcomes.size()) {
            Carry(InSettingOrder(descriptors), meant, outcomes);
            return outcomes;
        }
        for (auto& [name, outcome] : outcomes)
            if (outcome.result.reason.empty())
                outcome.result.reason = "another value of the same request cannot be set";
        return outcomes;
    }

    Parameter Info(const std::string& name)
    {
        const auto catalogue = Parameters();
        return {catalogue, &Find(*catalogue, name)};
    }
    bool Contains(const std::string& name) { return Parameters()->Find(name) != nullptr; }
    Names AllNames(const Names& patterns)
    {
        Names names;
        const auto catalogue = Parameters();
        for (ParamDescriptor* const descriptor : Matching(*catalogue, patterns))
            names.push_back(Catalogue::NameOf(*descriptor));
        return names;
    }

    ChangeQueue Changes(const Names& patterns, bool wantsInitial) const
    {
        return Open()->Changes(patterns, wantsInitial);
    }

  private:
    std::shared_ptr<Device> Open() const
    {
        if (!m_device) throw py::value_error("the device is closed");
        return m_device;
    }
    /// Sets the values in the order of the descriptors.
    void Carry(const std::vector<ParamDescriptor*>& descriptors, const std::map<eParam_t, Value>& meant,
               std::vector<std::pair<std::string, Outcome>>& outcomes) const
    {
        std::vector<std::pair<eParam_t, Value>> values;
        for (ParamDescriptor* const descriptor : descriptors)
            values.emplace_back(descriptor->GetParamID(), meant.at(descriptor->GetParamID()));
        const auto device = Open();
        std::vector<SetResult> results;
        {
            const Unlocked unlocked;
            results = device->SetMany(values);
        }
        for (const SetResult& result : results) RaiseIfNotAsked(result);
        for (auto& [name, outcome] : outcomes)
            for (size_t i = 0; i < values.size(); ++i)
                if (descriptors[i] == outcome.descriptor) outcome.result = results[i];
    }

    static constexpr auto kKept = [](Device& device, eParam_t id) { return device.Kept(id); };

    /// @param ask  for the value, without the interpreter's lock. @param show  what it is in Python.
    template <class Ask, class Show>
    py::object Got(const std::string& name, Ask ask, Show show)
    {
        const auto catalogue = Parameters();
        ParamDescriptor& descriptor = Find(*catalogue, name);
        const auto device = Open();
        GetResult result;
        {
            const Unlocked unlocked;
            result = ask(*device, descriptor.GetParamID());
        }
        if (!result) Raise(result.failure, result.reason);
        return show(descriptor, *result.value);
    }

    /// @param prepare  is done to each value without the interpreter's lock. @param show  what the dictionary has for it.
    template <class Prepare, class Show>
    py::dict Many(const Names& patterns, Prepare prepare, Show show)
    {
        const auto catalogue = Parameters();
        const auto device = Open();
        const std::vector<ParamDescriptor*> wanted = Matching(*catalogue, patterns);
        std::vector<eParam_t> ids;
        for (ParamDescriptor* const descriptor : wanted) ids.push_back(descriptor->GetParamID());
        std::vector<GetResult> results;
        {
            const Unlocked unlocked;
            results = device->GetMany(ids);
            for (size_t i = 0; i < results.size(); ++i)
                if (results[i]) prepare(*wanted[i], *results[i].value);
        }
        py::dict values;
        for (size_t i = 0; i < results.size(); ++i) {
            const GetResult& result = results[i];
            if (result) values[py::str(Catalogue::NameOf(*wanted[i]))] = show(*wanted[i], *result.value);
            // What this transport does not carry is left out; a connection that is gone is not.
            if (!result && result.failure != Failure::kNoValue && result.failure != Failure::kNoSuchParameter)
                Raise(result.failure, result.reason);
        }
        return values;
    }

    static std::vector<ParamDescriptor*> Matching(const Catalogue& catalogue, const Names& patterns)
    {
        std::vector<ParamDescriptor*> matching;
        for (const auto& [id, descriptor] : catalogue.All())
            if (MatchesAny(Catalogue::NameOf(*descriptor), patterns)) matching.push_back(descriptor);
        return matching;
    }

    const std::string m_address;
    const double m_timeout;
    std::shared_ptr<Device> m_device;
    bool m_isAddress = false;
    std::atomic<bool> m_isClosed{false};
    bool m_wasInStep = false;
};

void DefineResults(py::module_& module)
{
    py::enum_<SetResult::Outcome>(module, "Outcome", "What became of a value that was set.")
        .value("STORED", SetResult::Outcome::kStored, "The device holds the value.")
        .value("CORRECTED", SetResult::Outcome::kCorrected, "The device holds another value.")
        .value("REFUSED", SetResult::Outcome::kRefused, "The device kept what it had.")
        .value("NOT_SENT", SetResult::Outcome::kNotSent, "The device was not asked.")
        .value("UNKNOWN", SetResult::Outcome::kUnknown,
               "The device was asked; what became of it was not seen.");
    py::class_<Outcome>(module, "SetResult",
                        "What became of a value that was set; true when it is stored as it is.")
        .def_property_readonly("outcome", [](const Outcome& self) { return self.result.outcome; })
        .def_property_readonly("value", &Outcome::Now,
                               "What the device holds now; None if that was not read.")
        .def_property_readonly("text", &Outcome::Text, "The same as people read it.")
        .def_property_readonly(
            "reason", [](const Outcome& self) { return self.result.reason; },
            "Why it is not stored as it is; empty when it is.")
        .def("__bool__", [](const Outcome& self) { return bool(self.result); })
        .def("__repr__", &Outcome::Show);
    py::class_<DeviceStatus>(module, "Status", "How the connection is.")
        .def_property_readonly(
            "state", [](const DeviceStatus& self) { return vexa::NameOf(self.state); },
            "\"connecting\", \"in step\", \"lost\", \"refused\" or \"other model\".")
        .def_property_readonly("since", &SinceOf, "When that began, as an aware datetime.")
        .def_readonly("reason", &DeviceStatus::reason, "Why it is not in step; empty when it is.")
        .def_readonly("model", &DeviceStatus::model, "\"OAK\"; empty until the device has told it.")
        .def_readonly("software", &DeviceStatus::software, "The version that the device tells.")
        .def("__repr__", [](const DeviceStatus& self) {
            return std::string("<vexa.Status ") + vexa::NameOf(self.state) +
                   (self.reason.empty() ? "" : ": " + self.reason) + ">";
        });
}

void DefineChanges(py::module_& module)
{
    py::class_<Change>(module, "Change", "A value that a parameter has now.")
        .def_readonly("name", &Change::name)
        .def_property_readonly("value", &ValueOf)
        .def_property_readonly(
            "text", [](const Change& self) { return DecodedText(self.Text()); },
            "The value as people read it: \"70 %\".")
        .def_property_readonly(
            "kind", [](const Change& self) { return NameOf(self.kind); },
            "\"event\": told by the device; \"difference\": found after a connection; "
            "\"initial\": the value of the beginning.")
        .def_property_readonly("time", &TimeOf,
                               "When it changed, or when that was noticed, as an aware datetime.")
        .def_readonly("is_devices_time", &Change::isDevicesTime, "Whether the time is by the device's clock.")
        .def_readonly("skipped", &Change::skipped,
                      "Changes that this watch was too slow for since the one before; each was followed by a "
                      "newer one.")
        .def("__repr__", [](const Change& self) { return "<vexa.Change " + self.name + ">"; });
    py::class_<Watch>(module, "WatchBase")
        .def(py::init([](const PythonDevice& device, const Names& patterns, bool initial) {
                 return std::make_unique<Watch>(device.Changes(patterns, initial));
             }),
             py::arg("device"), py::arg("patterns"), py::arg("initial"))
        .def("next", &Watch::Next, py::arg("timeout") = py::none(),
             "The next change, waited for so many seconds, or without a time for ever; None when the time is "
             "up, or the "
             "watch is closed.")
        .def("__iter__", [](py::object self) { return self; })
        .def("__next__", &Watch::NextOrStop)
        .def("fileno", &Watch::Descriptor, "Readable while there are changes, for select and its like.")
        .def("close", &Watch::Close, "Ends loops over it.")
        .def_property_readonly("closed", &Watch::IsClosed);
}

void DefineDevice(py::module_& module)
{
    const auto name = py::arg("name");
    py::class_<PythonDevice>(module, "DeviceBase")
        .def(py::init<std::string, std::optional<std::string>, double>(), py::arg("address"), py::kw_only(),
             py::arg("model") = py::none(), py::arg("timeout") = 5.0)
        .def_property_readonly("address", &PythonDevice::Address)
        .def_property_readonly("status", &PythonDevice::Status, "How the connection is at this moment.")
        .def_property_readonly("closed", &PythonDevice::IsClosed)
        .def("close", &PythonDevice::Close, "Ends the connection. Leaving a with block does the same.")
        .def("wait", &PythonDevice::Wait, py::arg("timeout") = py::none(),
             "Waits until the device is in step, for so many seconds, else for the device's timeout; whether "
             "it is.")
        .def("__getitem__", &PythonDevice::Item, name)
        .def("read", &PythonDevice::Read, name, "The value, asked of the device now.")
        .def("text", &PythonDevice::Text, name, "The value as people read it: \"70 %\".")
        .def("set", &PythonDevice::Set, name, py::arg("value"),
             "Sets a value and reads it back. What the device makes of it the result says; raises when it "
             "was not asked.")
        .def("_set_many", &PythonDevice::SetMany)
        .def("_values", &PythonDevice::Values)
        .def("_texts", &PythonDevice::Texts)
        .def("_names", &PythonDevice::AllNames)
        .def("info", &PythonDevice::Info, name, "What the parameter is.")
        .def("__contains__", &PythonDevice::Contains, name);
}

}  // namespace
}  // namespace vexa::python

PYBIND11_MODULE(_vexa, module)
{
    module.attr("__version__") = std::to_string(VEXA_VERSION_MAJOR) + "." +
                                 std::to_string(VEXA_VERSION_MINOR) + "." +
                                 std::to_string(VEXA_VERSION_PATCH);
    vexa::python::WatchForTheEnd();
    vexa::python::DefineParameter(module);
    vexa::python::DefineResults(module);
    vexa::python::DefineChanges(module);
    vexa::python::DefineDevice(module);
}
