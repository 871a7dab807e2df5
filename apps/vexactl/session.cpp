#include "vexactl/session.h"

#include <algorithm>
#include <chrono>

#include "device/address.h"
#include "services/product/product_id.h"
#include "vexactl/times.h"
#include "vexactl/watch.h"

using vexa::DeviceState;
using vexa::DeviceStatus;

Session::Session(Output& output) : m_output(output) {}

Session::Session(Output& output, const Settings& settings, const std::string& device)
    : Settings(settings), m_output(output)
{
    uri = device;
    queues = false;
    isOneOfMany = true;
}

Session::~Session()
{
    Disconnect();
}

vexa::Device* Session::Connect()
{
    if (m_connection && !m_connection->IsInStep()) Disconnect();
    if (m_connection) return &m_connection->Get();
    vexa::Device* const device = Open(m_connection, Address());
    m_catalogue = device->Parameters();
    if (m_watched) BeginWatch();
    return device;
}

vexa::Device* Session::ConnectForData()
{
    const std::string address = DataAddress();
    if (address == Address()) return Connect();
    if (m_dataConnection && !m_dataConnection->IsInStep()) m_dataConnection.reset();
    if (m_dataConnection) return &m_dataConnection->Get();
    vexa::Device* const device = Open(m_dataConnection, address);
    if (!m_connection) m_catalogue = device->Parameters();
    return device;
}

std::string Session::DataAddress() const
{
    std::string ignored;
    auto address = vexa::DeviceAddress::Parse(Address(), ignored);
    if (address && address->transport == vexa::Transport::kQueue)
        throw ConnectionError("the message queues carry no alarms: -d udp://ADDRESS does");
    if (!address || address->transport != vexa::Transport::kTcp) return Address();
    address->transport = vexa::Transport::kUdp;
    return address->Text();
}

vexa::Device* Session::Open(std::unique_ptr<Connection>& connection, const std::string& address)
{
    constexpr std::chrono::milliseconds kProbeInterval(1000);
    std::string reason;
    const std::string place = address == Address() ? Place() : address;
    const auto parsed = vexa::DeviceAddress::Parse(address, reason);
    if (!parsed) throw ConnectionError("cannot connect to " + Quoted(address) + ": " + reason);
    if (!verbose && !isOneOfMany) m_output.HideLibraryMessages();
    Interrupts::Instance().Start();
    // An end in the middle of a request would leave the queue of this program behind.
    if (parsed->transport == vexa::Transport::kQueue) Interrupts::Instance().SetStop([] {});
    const std::chrono::milliseconds limit(MillisecondsOf(timeout));
    auto opened = std::make_unique<Connection>(address, vexa::DeviceOptions{.model = model,
                                                                            .assumesModel = !model.empty(),
                                                                            .timeout = limit,
                                                                            .probeInterval = kProbeInterval});
    // The device's own limit ends an attempt, and knows why. Only the look-up of a name has none.
    constexpr double kMargin = 0.3;
    const DeviceStatus status = opened->Await(timeout + kMargin);
    if (status.state != DeviceState::kInStep) {
        const bool isLate = status.failure == vexa::Failure::kTimedOut || status.reason.empty();
        if (isLate) throw ConnectionError("no answer from " + place + " in time", ExitStatus::kTimedOut);
        throw ConnectionError("cannot connect to " + place + ": " + status.reason);
    }
    if (status.isModelAssumed)
        Note(place + " names no model that is known: it is taken for " + model, {{"model", model}});
    connection = std::move(opened);
    return &connection->Get();
}

void Session::Disconnect()
{
    m_watch.reset();
    m_dataConnection.reset();
    m_connection.reset();
    Interrupts::Instance().SetStop(nullptr);
}

const vexa::Catalogue& Session::Described()
{
    if (hasDevice) {
        Connect();
        return *m_catalogue;
    }
    const std::string own = model.empty() ? CProductID::getProductID() : model;
    m_catalogue = vexa::Catalogue::Of(own);
    if (!m_catalogue) throw ConnectionError("unknown model " + Quoted(own), ExitStatus::kUsage);
    return *m_catalogue;
}

std::optional<Parameter> Session::Find(const std::string& name)
{
    if (ParamDescriptor* const descriptor = m_catalogue->Find(name)) return Parameter(descriptor);
    const std::string meant = DidYouMean(*m_catalogue, name);
    const std::string help = meant.empty() ? "\"list\" shows all, \"list '*PART*'\" some" : meant;
    Fail(ExitStatus::kUnknownParameter, "unknown parameter " + Quoted(name) + "; " + help, {{"param", name}});
    return std::nullopt;
}

std::vector<vexa::GetResult> Session::Read(vexa::Device& device,
                                           const std::vector<Parameter>& parameters) const
{
    std::vector<eParam_t> ids;
    ids.reserve(parameters.size());
    for (const Parameter& parameter : parameters) ids.push_back(parameter.Id());
    auto results = device.GetMany(ids);
    Interrupts::Instance().Check();
    for (const vexa::GetResult& result : results) RequireConnection(result.failure, result.reason);
    return results;
}

void Session::RequireConnection(vexa::Failure failure, const std::string& reason) const
{
    if (failure == vexa::Failure::kTimedOut)
        throw ConnectionError("no answer from " + Place() + " in time", ExitStatus::kTimedOut);
    if (failure == vexa::Failure::kNotConnected)
        throw ConnectionError("lost the connection to " + Place() + ": " + reason);
}

std::optional<DeviceStatus> Session::TakeNews()
{
    return (m_dataConnection ? m_dataConnection : m_connection)->TakeNews();
}

int Session::NewsFd() const
{
    return (m_dataConnection ? m_dataConnection : m_connection)->NewsFd();
}

// --- output ---

void Session::PrintLine(const std::string& line)
{
    if (!isOneOfMany || json) return m_output.Print(line);
    const std::string device = uri + "  ";
    std::string all = device;
    for (const char c : line) all += c == '\n' ? '\n' + device : std::string(1, c);
    m_output.Print(all);
}

void Session::Print(const std::string& line)
{
    if (m_watch) m_watch->Flush();
    PrintLine(line);
}

void Session::Print(Json object)
{
    if (isOneOfMany) {
        Json named{{"device", uri}};
        named.update(object);
        object = std::move(named);
    }
    Print(Dump(object));
}

void Session::PrintExactly(const std::string& text)
{
    if (m_watch) m_watch->Flush();
    if (isOneOfMany) return PrintLine(text);
    m_output.PrintExactly(text);
}

/// %n name, %N name for people, %v value, %u units, %t time, %d device, %% percent.
std::string Session::Formatted(const std::string& form, const Parameter& parameter,
                               const std::optional<Value>& value, const std::string& time) const
{
    std::string line;
    for (size_t i = 0; i < form.size(); ++i) {
        const bool isMark = form[i] == '%' && i + 1 < form.size();
        switch (isMark ? form[++i] : '\0') {
            case 'n':
                line += parameter.Name();
                break;
            case 'N':
                line += parameter.Descriptor().GetName();
                break;
            case 'v':
                line += value ? parameter.Bare(*value) : "-";
                break;
            case 'u':
                line += parameter.Units();
                break;
            case 't':
                line += time;
                break;
            case 'd':
                line += Place();
                break;
            default:
                line += form[i];
        }
    }
    return line;
}

void Session::PrintValue(const Parameter& parameter, const std::optional<Value>& value,
                         const std::string& usual)
{
    if (m_watch) m_watch->Flush();
    PrintChange(parameter, value, usual, Json::object(), "", format);
}

void Session::PrintChange(const Parameter& parameter, const std::optional<Value>& value,
                          const std::string& usual, const Json& more, const std::string& time,
                          const std::string& form)
{
    if (!form.empty()) return m_output.PrintExactly(Formatted(form, parameter, value, time));
    if (!json) return PrintLine(usual);
    Json object = isOneOfMany ? Json{{"device", uri}} : Json::object();
    object.update(more);
    object.update(value ? parameter.ToJson(*value)
                        : Json{{"id", parameter.IdText()}, {"param", parameter.Name()}});
    PrintLine(Dump(object));
}

ExitStatus Session::Fail(ExitStatus status, const std::string& message, const Json& details)
{
    if (!json) {
        Note(message);
        return status;
    }
    Json object = isOneOfMany ? Json{{"device", uri}} : Json::object();
    object.update(details);
    object["error"] = message;
    object["status"] = static_cast<int>(status);
    if (scriptLine) object["line"] = scriptLine;
    Print(Dump(object));
    return status;
}

void Session::Note(const std::string& message, const Json& details)
{
    if (json) {
        Json object = details;
        object["note"] = message;
        return Print(std::move(object));
    }
    const std::string device = isOneOfMany ? uri + ": " : "";
    const std::string place = scriptLine ? "line " + std::to_string(scriptLine) + ": " : "";
    m_output.Complain(device + place + message);
}

// --- a watch in the background ---

void Session::StartWatch(const std::vector<std::string>& names, bool ofData)
{
    StopWatch();
    Connect();
    m_watched = names;
    m_watchesData = ofData;
    BeginWatch();
}

void Session::BeginWatch()
{
    vexa::Device& device = m_watchesData ? *ConnectForData() : m_connection->Get();
    m_watch = std::make_unique<BackgroundWatch>(*this, device, *m_watched);
}

void Session::StopWatch()
{
    m_watched.reset();
    if (m_watch) m_watch->Flush();
    m_watch.reset();
}
