#include "mainstay/control/state_reports.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <optional>

#include "config/base/base64.h"
#include "config/descriptors/descriptor_table.h"
#include "config/descriptors/enum_descriptor.h"
#include "device/catalogue.h"
#include "mainstay/control/reports.h"
#include "services/product/product_id.h"

namespace control {

namespace {

namespace net = vexa::corvalis::config::access;

constexpr int64_t kMicroseconds = 1'000'000;
/// What one answer holds; older lines are asked for with "since".
constexpr size_t kMaxLines = 10'000, kDefaultLines = 1000;

std::string TextOfTime(int64_t microseconds)
{
    return TimeText({static_cast<time_t>(microseconds / kMicroseconds),
                     static_cast<suseconds_t>(microseconds % kMicroseconds)});
}

/// "2026-02-28T13:05:09.123Z" in microseconds since 1970, the fraction left out or not.
int64_t ParseTime(const std::string& text)
{
    tm parts{};
    const char* const rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    char* end = nullptr;
    const double fraction = rest && *rest == '.' ? strtod(rest, &end) : 0;
    if (!rest || std::string(end ? end : rest) != "Z")
        throw Failure("\"since\" is no time in RFC 3339 and UTC");
    return int64_t{timegm(&parts)} * kMicroseconds + static_cast<int64_t>(fraction * kMicroseconds);
}

Json LineJson(const state::HistoryLine& line)
{
    return {{"time", TextOfTime(line.time)},
            {"config", line.configID},
            {"param", state::NameOf(line.param)},
            {"old", line.before},
            {"new", line.after},
            {"who", line.who}};
}

Json DenialJson(const net::Denial& denial)
{
    const int64_t time = denial.time.tv_sec * kMicroseconds + denial.time.tv_usec;
    return {{"time", TextOfTime(time)},
            {"config", denial.configID},
            {"param", denial.param == eParam_t{} ? "" : state::NameOf(denial.param)},
            {"asked", denial.asked},
            {"value", denial.value},
            {"who", denial.who},
            {"why", denial.why},
            {"times", denial.times}};
}

std::vector<eParam_t> ParamsOf(const Json& request)
{
    std::vector<eParam_t> params;
    const auto catalogue = vexa::Catalogue::Of(CProductID::getProductID());
    for (const auto& name : request.value("params", Json::array())) {
        ParamDescriptor* const descriptor = catalogue->Find(name.get<std::string>());
        if (!descriptor) throw Failure("unknown parameter " + name.get<std::string>());
        params.push_back(descriptor->GetParamID());
    }
    return params;
}

bool Wants(const std::vector<eParam_t>& params, eParam_t param)
{
    return params.empty() || std::ranges::find(params, param) != params.end();
}

/// "en_US.utf8"
std::string LocaleName(unsigned int locale)
{
    auto* const locales = dynamic_cast<EnumDescriptor*>(FindDescriptor(eParamID_Locale));
    return locales ? locales->GetEnumValueDescriptor(locale).shortName : "";
}

eParam_t PresetName(unsigned int number)
{
    return static_cast<eParam_t>(eParamID_PresetName_1 + ((number - 1) << 16));
}

}  // namespace

StateReports::StateReports(Device device) : m_device(std::move(device)), m_since(Now())
{
    m_device.keeper.OnLines([this](const std::vector<state::HistoryLine>& lines) { Follow(lines); });
    net::WatchDenials([this](const net::Denial& denial) { FollowDenials(denial); });
}

StateReports::~StateReports()
{
    net::WatchDenials(nullptr);
}

void StateReports::AddTo(Handlers& handlers)
{
    handlers["status"] = [this](const Json&, const Peer&) { return Status(); };
    handlers["log"] = [this](const Json& request, const Peer&) { return Log(request); };
    handlers["presets"] = [this](const Json& request, const Peer&) {
        return request.value("do", "list") == "list" ? ListPresets() : DoPreset(request);
    };
}

Json StateReports::Status() const
{
    const state::KeeperStatus status = m_device.keeper.Status();
    Json notes = Json::array();
    for (const std::string& note : m_device.actions.Notes()) notes.push_back(note);
    const unsigned int next = m_device.store.Get(eParamID_Locale);
    if (next != m_device.locale) notes.push_back("Locale takes effect at the next start");
    return {{"model", CProductID::getProductID()},
            {"version", MAINSTAY_VERSION},
            {"since", m_since},
            {"endpoints", m_device.endpoints},
            {"rules", m_device.rules},
            {"denied", net::DenialCount()},
            {"state",
             {{"kept", !status.path.empty()},
              {"file", status.path},
              {"saved", status.saved ? Json(TextOfTime(status.saved)) : Json()},
              {"waiting", status.waiting},
              {"lost", status.lost},
              {"problem", status.problem},
              {"notes", status.notes}}},
            {"locale", {{"active", LocaleName(m_device.locale)}, {"next", LocaleName(next)}}},
            {"notes", notes}};
}

Answer StateReports::Log(const Json& request)
{
    state::HistoryQuery query{.params = ParamsOf(request)};
    if (const auto since = request.find("since"); since != request.end() && !since->is_null())
        query.since = ParseTime(since->get<std::string>());
    query.limit = std::min(request.value("limit", kDefaultLines), kMaxLines);
    const bool isWhole = m_device.keeper.Flush();  // what has just happened belongs to the answer
    std::shared_ptr<Stream> stream;
    if (request.value("follow", false)) stream = std::make_shared<Stream>();
    std::vector<state::HistoryLine> lines;
    {
        // Lines that are written from now on are pushed to the follower, unless they are among those that are read.
        vexa::MutexLock hold(m_lock);
        int64_t newest = m_device.file.NewestLine();
        lines = m_device.file.ReadHistory(query);
        if (!lines.empty()) newest = std::max(newest, lines.back().id);  // one may have come between the two
        if (stream) m_followers.push_back({stream, newest, query.params});
    }
    Json changes = Json::array(), denied = Json::array();
    for (const state::HistoryLine& line : lines) changes.push_back(LineJson(line));
    if (stream) {
        vexa::MutexLock hold(m_denialLock);
        m_denialFollowers.push_back({stream, 0, query.params});
    }
    for (const net::Denial& denial : net::Denials())
        if (denial.time.tv_sec * kMicroseconds + denial.time.tv_usec >= query.since &&
            Wants(query.params, denial.param))
            denied.push_back(DenialJson(denial));
    Json answer{{"changes", changes}, {"denied", denied}};
    if (!isWhole) answer["problem"] = m_device.keeper.Status().problem;
    return {answer, stream};
}

/// On the keeper's thread.
void StateReports::Follow(const std::vector<state::HistoryLine>& lines)
{
    vexa::MutexLock hold(m_lock);
    std::erase_if(m_followers, [](const Follower& follower) { return follower.stream.expired(); });
    for (Follower& follower : m_followers) {
        const auto stream = follower.stream.lock();
        for (const state::HistoryLine& line : lines)
            if (stream && line.id > follower.lastID && Wants(follower.params, line.param))
                stream->Push({{"change", LineJson(line)}});
    }
}

/// On the thread that denies.
void StateReports::FollowDenials(const net::Denial& denial)
{
    vexa::MutexLock hold(m_denialLock);
    std::erase_if(m_denialFollowers, [](const Follower& follower) { return follower.stream.expired(); });
    for (const Follower& follower : m_denialFollowers)
        if (const auto stream = follower.stream.lock(); stream && Wants(follower.params, denial.param))
            stream->Push({{"denied", DenialJson(denial)}});
}

Json StateReports::ListPresets()
{
    Json list = Json::array();
    for (const auto& [preset, values] : m_device.file.ListPresets()) {
        std::string name;
        m_device.store.Get(PresetName(preset.number), name);
        list.push_back({{"number", preset.number},
                        {"name", name},
                        {"saved", TextOfTime(preset.saved)},
                        {"values", values}});
    }
    return {{"presets", list}};
}

Json StateReports::DoPreset(const Json& request)
{
    const std::string verb = request.at("do");
    const auto asked = request.at("number").get<uint64_t>();
    const auto number = static_cast<unsigned int>(std::min<uint64_t>(asked, UINT32_MAX));
    if (!actions::Presets::IsNumber(number)) throw Failure("presets have the numbers 1 to 20");
    if (verb == "save") return Save(number, request);
    if (verb == "recall") return Result(eParamID_RegisterRecallResult, m_device.presets.Recall(number));
    if (verb == "delete") {
        const actions::PresetResult result = m_device.presets.Delete(number);
        if (result.outcome == actions::Outcome::kFailed) throw Failure(result.reason);
        return {{"result", result.outcome == actions::Outcome::kComplete ? "Deleted" : "Preset Empty"}};
    }
    if (verb == "export") {
        std::string bytes;
        Json answer = Result(eParamID_RegisterExportResult, m_device.presets.Export(number, bytes));
        answer["file"] = vexa::ToBase64(bytes);
        return answer;
    }
    if (verb != "import")
        throw Failure("presets can be listed, saved, recalled, deleted, exported and imported");
    const auto bytes = vexa::FromBase64(request.at("file"));
    if (!bytes) throw Failure("\"file\" is not base64");
    return Result(eParamID_RegisterImportResult, m_device.presets.Import(number, *bytes));
}

Json StateReports::Save(unsigned int number, const Json& request)
{
    const std::string name = request.value("name", "");
    Json answer = Result(eParamID_RegisterSaveResult, m_device.presets.Save(number));
    if (!name.empty()) m_device.store.Set(PresetName(number), name);
    return answer;
}

/// In the words of the result parameter. Throws what failed.
Json StateReports::Result(eParam_t parameter, const actions::PresetResult& result) const
{
    if (result.outcome != actions::Outcome::kComplete) throw Failure(result.reason);
    auto* const words = dynamic_cast<EnumDescriptor*>(FindDescriptor(parameter));
    Json refused = Json::array();
    for (const actions::Refusal& refusal : result.refusals)
        refused.push_back({{"param", state::NameOf(refusal.param)}, {"reason", refusal.reason}});
    return {{"result", words ? words->GetEnumValueDescriptor(static_cast<unsigned int>(result.outcome)).name
                             : "Complete"},
            {"refused", refused}};
}

}  // namespace control
