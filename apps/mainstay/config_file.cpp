#include "mainstay/config_file.h"

#include <toml++/toml.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>

#include "device/format.h"
#include "mainstay/actions/actions.h"

namespace {

constexpr int64_t kMaxTimeout = 86'400;

[[noreturn]] void Refuse(uint32_t line, const std::string& what)
{
    throw CLI::ConfigError("line " + std::to_string(line) + ": " + what);
}

[[noreturn]] void Refuse(const toml::node& node, const std::string& what)
{
    Refuse(node.source().begin.line, what);
}

/// A value as it would stand on the command line.
std::string TextOf(const toml::node& node)
{
    if (const auto text = node.value<std::string>()) return *text;
    if (node.is_table() || node.is_array()) Refuse(node, "a single value is expected");
    std::ostringstream text;
    text << toml::node_view<const toml::node>(node);
    return text.str();
}

std::vector<std::string> TextsOf(const toml::node& node)
{
    const toml::array* const list = node.as_array();
    if (!list) return {TextOf(node)};
    std::vector<std::string> texts;
    for (const toml::node& element : *list) texts.push_back(TextOf(element));
    return texts;
}

/// Anything else would do for a text, and for the name of a directory.
void CheckKind(const std::string& key, const toml::node& node)
{
    static const std::set<std::string> kTexts{"state", "media", "control", "byteorder", "bind", "allow"};
    if (node.is_boolean() && !key.starts_with("no-")) Refuse(node, "\"" + key + "\" takes no true or false");
    if (!kTexts.contains(key)) return;
    const toml::array* const list = node.as_array();
    const bool areTexts = list ? std::ranges::all_of(*list, &toml::node::is_string) : node.is_string();
    if (!areTexts) Refuse(node, "\"" + key + "\" takes a text");
}

}  // namespace

std::vector<CLI::ConfigItem> ConfigFile::from_config(std::istream& input) const
{
    toml::table file;
    try {
        file = toml::parse(input);
    } catch (const toml::parse_error& error) {
        Refuse(error.source().begin.line, std::string(error.description()));
    }
    std::vector<CLI::ConfigItem> settings;
    for (const auto& [key, node] : file) {
        CheckKind(std::string(key.str()), node);
        if (const toml::array* const list = node.as_array(); list && list->empty()) continue;  // none given
        if (key == "action")
            ReadActions(node);
        else
            settings.push_back({{}, std::string(key.str()), TextsOf(node)});
    }
    return settings;
}

/// [action.PARAMETER] and [action.PARAMETER.VALUE]
void ConfigFile::ReadActions(const toml::node& node) const
{
    const toml::table* const params = node.as_table();
    if (!params) Refuse(node, "\"action\" is a table");
    for (const auto& [param, entry] : *params) {
        const toml::table* const table = entry.as_table();
        if (!table) Refuse(entry, "\"action." + std::string(param.str()) + "\" is a table");
        ReadParam(std::string(param.str()), *table);
    }
}

void ConfigFile::ReadParam(const std::string& param, const toml::table& table) const
{
    bool isEntry = table.empty();
    for (const auto& [key, node] : table) {
        if (const toml::table* const ofValue = node.as_table())
            ReadEntry(param, std::string(key.str()), *ofValue);
        else
            isEntry = true;
    }
    if (isEntry) ReadEntry(param, std::nullopt, table);
}

void ConfigFile::ReadEntry(const std::string& param, const std::optional<std::string>& value,
                           const toml::table& table) const
{
    Entry entry{table.source().begin.line, param, value, {}, 60};
    for (const auto& [key, node] : table) {
        if (key == "run" || (node.is_table() && !value)) continue;
        const auto seconds = node.value<int64_t>();
        if (key != "timeout" || !seconds || *seconds < 1 || *seconds > kMaxTimeout)
            Refuse(node,
                   "\"" + std::string(key.str()) + "\": an action has \"run\", and \"timeout\" in seconds");
        entry.timeout = *seconds;
    }
    const toml::node* const run = table.get("run");
    if (!run || !run->is_array()) Refuse(table, "\"run\" is missing: a list of program and arguments");
    entry.run = TextsOf(*run);
    if (!entry.run.empty() && !entry.run.front().starts_with('/'))
        Refuse(*run, "a program is named by its whole path");
    m_entries.push_back(std::move(entry));
}

/// Refuses what would never run.
actions::ProgramAction ConfigFile::Resolve(const Entry& entry, const vexa::Catalogue& catalogue)
{
    const std::string name = entry.Name() + ": ";
    ParamDescriptor* const descriptor = catalogue.Find(entry.param);
    if (!descriptor) Refuse(entry.line, name + "there is no such parameter");
    if (actions::IsBuiltIn(*descriptor)) Refuse(entry.line, name + "the daemon itself carries it out");
    if (vexa::HoldsBytes(*descriptor)) Refuse(entry.line, name + "only numbers and texts have actions");
    actions::ProgramAction action{
        descriptor->GetParamID(), {}, entry.run, std::chrono::seconds(entry.timeout)};
    if (!entry.value) return action;
    std::string reason;
    const auto value = vexa::Parse(*descriptor, *entry.value, reason);
    if (value && std::holds_alternative<std::string>(*value))
        reason = "only numbers have actions of their own";
    if (value && reason.empty()) reason = vexa::Objection(*descriptor, *value).value_or("");
    if (!reason.empty()) Refuse(entry.line, name + reason);
    action.value = std::get<unsigned int>(*value);
    return action;
}

std::vector<actions::ProgramAction> ConfigFile::Actions(const std::string& model) const
{
    const auto catalogue = vexa::Catalogue::Of(model);
    std::vector<actions::ProgramAction> actions;
    for (const Entry& entry : m_entries) {
        actions::ProgramAction action = Resolve(entry, *catalogue);
        for (size_t i = 0; i < actions.size(); ++i)
            if (actions[i].param == action.param && actions[i].value == action.value)
                Refuse(entry.line, entry.Name() + ": the same as " + m_entries[i].Name());
        actions.push_back(std::move(action));
    }
    return actions;
}
