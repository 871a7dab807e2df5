#include "vexactl/catalogue.h"

#include "vexactl/description.h"

namespace {

constexpr const char* kIntroduction = R"(
Made by `vexactl catalogue --markdown`; do not edit. A group is the high byte of the identifier. Ranges and defaults are
stored numbers; `V / 1000` means stored in thousandths of a volt. Data and alarms are bytes in hexadecimal. Other models
have other parameters, values and defaults: `docs/models.md`.)";

/// A text inside a table: the characters that Markdown would interpret are escaped.
std::string Escaped(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        if (std::string_view("\\|<>*[]`").find(c) != std::string_view::npos) result += '\\';
        result += c == '\n' ? ' ' : c;
    }
    return result;
}

std::string Code(const std::string& text)
{
    return "`" + text + "`";
}

std::string ListOf(const Json& entries, std::string (*shown)(const Json&))
{
    std::string list;
    for (const Json& entry : entries) list += (list.empty() ? "" : ", ") + shown(entry);
    return list;
}

std::string RangeOf(const Json& facts)
{
    if (facts.contains("values"))
        return ListOf(facts["values"], [](const Json& entry) {
            return entry["value"].dump() + " " + Escaped(entry["name"].get<std::string>());
        });
    if (facts.contains("min")) return facts["min"].dump() + " to " + facts["max"].dump();
    if (facts.contains("minLength"))
        return facts["minLength"].dump() + " to " + facts["maxLength"].dump() + " bytes";
    return "";
}

/// As stored, like the range beside it; an address with its dots, since its number is not recognisable.
std::string DefaultOf(const Json& facts, const Parameter& parameter)
{
    const Json fact = facts.value("default", Json(""));
    if (fact == "") return "";
    if (parameter.Descriptor().GetParamType() == eCParam_IPAddress)
        return parameter.Text(fact.get<unsigned int>());
    return facts["kind"] == "data" || facts["kind"] == "alarm" ? fact.get<std::string>()
                                                               : Escaped(Dump(fact));
}

std::string Row(const Json& facts, const Parameter& parameter)
{
    std::string row = "|";
    for (const std::string& cell :
         {Code(parameter.Name()), Code(parameter.IdText()), Escaped(facts["name"].get<std::string>()),
          std::string(parameter.Kind()), RangeOf(facts), DefaultOf(facts, parameter),
          Escaped(facts.value("units", "") + (facts.contains("scale") ? " / " + facts["scale"].dump() : "")),
          ListOf(facts["classNames"], [](const Json& name) { return Code(name.get<std::string>()); }),
          Escaped(facts["description"].get<std::string>())})
        row += " " + cell + (cell.empty() ? "|" : " |");
    return row;
}

void PrintMarkdown(Session& session, const vexa::Catalogue& catalogue)
{
    const std::string& model = catalogue.Model();
    session.Print("# Parameters of " + (model.empty() ? "an unknown model" : "the model " + model));
    session.Print(std::string(kIntroduction));
    std::optional<unsigned int> group;
    for (const auto& [id, descriptor] : catalogue.All()) {
        if (group != id >> 24) {
            group = id >> 24;
            session.Print("\n## Group " + std::to_string(*group) +
                          "\n\n| parameter | identifier | name | kind | range or values | default | units | "
                          "class names | description |\n|---|---|---|---|---|---|---|---|---|");
        }
        const Parameter parameter(descriptor);
        session.Print(Row(Describe(catalogue, parameter), parameter));
    }
}

}  // namespace

ExitStatus PrintCatalogue(Session& session, bool markdown)
{
    if (markdown && session.json) return session.Fail(ExitStatus::kUsage, "--markdown is a page, not JSON");
    const vexa::Catalogue& catalogue = session.Described();
    if (markdown) {
        PrintMarkdown(session, catalogue);
        return ExitStatus::kDone;
    }
    Json all = Json::array();
    for (const auto& [id, descriptor] : catalogue.All())
        all.push_back(Describe(catalogue, Parameter(descriptor)));
    if (session.json)
        for (const Json& facts : all) session.Print(facts);
    else
        session.Print(all.dump(2, ' ', false, Json::error_handler_t::replace));
    return ExitStatus::kDone;
}
