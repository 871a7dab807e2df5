#include "vexactl/completion.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "config/descriptors/enum_descriptor.h"
#include "device/format.h"
#include "services/product/product_id.h"
#include "vexactl/groups.h"
#include "vexactl/language.h"
#include "vexactl/words.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kOperators = "=!<>";

bool Begins(const std::string& text, const std::string& beginning)
{
    return text.size() >= beginning.size() &&
           strncasecmp(text.data(), beginning.data(), beginning.size()) == 0;
}

void Add(Words& words, const std::string& word)
{
    if (std::ranges::find(words, word) == words.end()) words.push_back(word);
}

// --- the grammar ---

/// Where a line of words has come to.
struct Place {
    CLI::App* verb;
    Words arguments;                 ///< of the verb, without options
    CLI::Option* awaited = nullptr;  ///< the option whose value comes next
    bool takesOptions = true;
};

CLI::Option* FindOption(CLI::App* verb, const std::string& word)
{
    for (; verb; verb = verb->get_parent())
        for (CLI::Option* const option : verb->get_options())
            if (option->check_name(word)) return option;
    return nullptr;
}

CLI::App* FindVerb(CLI::App& app, const std::string& word)
{
    const auto verbs = app.get_subcommands([&](const CLI::App* verb) { return verb->check_name(word); });
    return verbs.empty() ? nullptr : verbs.front();
}

void Pass(Place& place, const std::string& word)
{
    if (place.awaited) {
        place.awaited = nullptr;
    } else if (place.takesOptions && word == "--") {
        place.takesOptions = false;
    } else if (place.takesOptions && word.size() > 1 && word.front() == '-') {
        CLI::Option* const option = FindOption(place.verb, word);
        if (option && option->get_items_expected_max() > 0) place.awaited = option;
    } else if (CLI::App* const verb = FindVerb(*place.verb, word); verb && place.arguments.empty()) {
        place.verb = verb;
    } else {
        place.arguments.push_back(word);
    }
}

void AddOptions(Words& found, CLI::App* verb, const std::string& word)
{
    for (; verb; verb = verb->get_parent())
        for (const CLI::Option* const option : verb->get_options())
            for (const std::string& name : option->get_lnames())
                if (!option->get_group().empty() && Begins("--" + name, word)) Add(found, "--" + name);
}

void AddVerbs(Words& found, CLI::App& app, const std::string& word)
{
    for (const CLI::App* const verb : app.get_subcommands([](const CLI::App*) { return true; }))
        if (!verb->get_group().empty() && Begins(verb->get_name(), word)) Add(found, verb->get_name());
}

/// The name of the verb's argument that comes next: "PARAMETER"; the last one may stand several times.
std::string NextArgument(const Place& place)
{
    Words names;
    for (const CLI::Option* const option : place.verb->get_options())
        if (option->get_positional()) names.push_back(option->get_name(true));
    return names.empty() ? "" : names[std::min(place.arguments.size(), names.size() - 1)];
}

// --- the catalogue ---

void AddNames(Words& found, const Catalogues& catalogues, const std::string& word,
              bool (*isMeant)(ParamDescriptor&))
{
    for (const auto& catalogue : catalogues)
        for (const auto& [id, descriptor] : catalogue->All()) {
            const std::string name = vexa::Catalogue::NameOf(*descriptor);
            if (Begins(name, word) && isMeant(*descriptor)) Add(found, name);
        }
    std::ranges::sort(found);
}

void AddClassNames(Words& found, const Catalogues& catalogues, const std::string& word)
{
    for (const auto& catalogue : catalogues)
        for (const auto& [id, descriptor] : catalogue->All())
            for (const std::string& name : descriptor->GetClassNames())
                if (Begins(name, word)) Add(found, name);
    std::ranges::sort(found);
}

/// The name of a value, or its number where it has none.
std::string NameOfValue(EnumDescriptor& enumeration, unsigned int value)
{
    const std::string shown = vexa::Format(enumeration, value);  // "0 Clip"
    return shown.substr(shown.find(' ') + 1);
}

void AddValues(Words& found, const Catalogues& catalogues, const std::string& name, const std::string& word)
{
    for (const auto& catalogue : catalogues) {
        auto* const enumeration = dynamic_cast<EnumDescriptor*>(catalogue->Find(name));
        if (!enumeration) continue;
        for (const EnumValueDescriptor& entry : enumeration->GetOrderedEnumValueDescriptors()) {
            const std::string value = NameOfValue(*enumeration, entry.value);
            if (Begins(value, word)) Add(found, value);
        }
    }
}

bool IsAny(ParamDescriptor&)
{
    return true;
}
bool IsAlarm(ParamDescriptor& descriptor)
{
    return vexa::KindOf(descriptor) == std::string_view("alarm");
}
bool IsSettable(ParamDescriptor& descriptor)
{
    return !descriptor.HasClassName("readonly") && !vexa::HoldsBytes(descriptor);
}

/// "FanSpeed", "FanSpeed=70", or the value behind a name.
void AddAssignments(Words& found, const Catalogues& catalogues, const Place& place, const std::string& word)
{
    const size_t end = word.find_first_of(kOperators);
    if (end != std::string::npos) {
        const size_t value = std::min(word.find_first_not_of(kOperators, end), word.size());
        AddValues(found, catalogues, word.substr(0, end), word.substr(value));
        for (std::string& candidate : found) candidate.insert(0, word, 0, value);
    } else if (place.arguments.size() == 1 &&
               place.arguments[0].find_first_of(kOperators) == std::string::npos) {
        AddValues(found, catalogues, place.arguments[0], word);
    } else {
        AddNames(found, catalogues, word, place.verb->get_name() == "set" ? IsSettable : IsAny);
    }
}

void AddDefaults(Words& found, const std::string& verb, const std::string& word)
{
    if (verb == "diff" && Begins("defaults", word)) Add(found, "defaults");
}

void AddArguments(Words& found, const Catalogues& catalogues, const Place& place, const std::string& word)
{
    const std::string verb = place.verb->get_name(), argument = NextArgument(place);
    if (argument.empty()) return;
    if (verb == "set" || verb == "wait")
        AddAssignments(found, catalogues, place, word);
    else if (argument.find("ALARM") != std::string::npos)
        AddNames(found, catalogues, word, IsAlarm);
    else if (argument == "FILE" || argument == "FILE_OR_DEVICE")  // which are there, the other shell knows
        AddDefaults(found, verb, word);
    else if (argument.find("PARAMETER") != std::string::npos || argument == "PATTERN")
        AddNames(found, catalogues, word, IsAny);
}

void AddBeginning(Words& found, const Words& words, const std::string& word)
{
    for (const std::string& candidate : words)
        if (Begins(candidate, word)) Add(found, candidate);
}

void AddOptionValues(Words& found, const Catalogues& catalogues, const CLI::Option& option,
                     const std::string& word)
{
    if (option.check_lname("class")) AddClassNames(found, catalogues, word);
    if (option.check_lname("only")) AddNames(found, catalogues, word, IsSettable);
    if (option.check_lname("group")) AddBeginning(found, GroupNames(), word);
    if (option.check_lname("lang")) AddBeginning(found, Languages(), word);
    if (!option.check_lname("model")) return;
    for (const auto& catalogue : AllCatalogues()) AddBeginning(found, {catalogue->Model()}, word);
}

void PrintCandidates(CLI::App& app, Words words)
{
    if (words.empty()) words.emplace_back();
    for (const std::string& candidate : Candidates(app, words, LikelyCatalogues()))
        printf("%s\n", candidate.c_str());
}

}  // namespace

Catalogues AllCatalogues()
{
    constexpr unsigned int kMostModels = 1000;  // their numbers have gaps
    Catalogues all;
    for (unsigned int number = 0; number < kMostModels; ++number)
        if (const auto model = vexa::Catalogue::ModelOf(number)) all.push_back(vexa::Catalogue::Of(*model));
    return all;
}

Catalogues LikelyCatalogues()
{
    const bool isTold = getenv("PRODUCT_ID") || access("/etc/product_id", R_OK) == 0;
    const std::string own = isTold ? CProductID::getProductID() : "";
    if (auto catalogue = own.empty() ? nullptr : vexa::Catalogue::Of(own)) return {catalogue};
    return AllCatalogues();
}

std::vector<std::string> Candidates(CLI::App& grammar, const std::vector<std::string>& words,
                                    const Catalogues& catalogues)
{
    Place place{&grammar, {}};
    for (size_t i = 0; i + 1 < words.size(); ++i) Pass(place, words[i]);
    const std::string& word = words.back();
    Words found;
    if (place.awaited) {
        AddOptionValues(found, catalogues, *place.awaited, word);
    } else if (place.takesOptions && word.starts_with('-')) {
        AddOptions(found, place.verb, word);
    } else {
        if (place.arguments.empty()) AddVerbs(found, *place.verb, word);
        AddArguments(found, catalogues, place, word);
    }
    return found;
}

Completion CompleteLine(CLI::App& grammar, const std::string& before, const Catalogues& catalogues)
{
    LineWords line = ParseLine(before);
    if (!line.endsInside) {
        line.words.emplace_back();
        line.offsets.push_back(before.size());
    }
    // A value of several words may have been begun without quotes: set EncodeType ProRes 4
    constexpr size_t kValue = 2;
    if (line.words.size() > kValue + 1 && line.words[0] == "set") {
        for (size_t i = kValue + 1; i < line.words.size(); ++i) line.words[kValue] += ' ' + line.words[i];
        Words joined(line.words.begin(), line.words.begin() + kValue + 1);
        if (!Candidates(grammar, joined, catalogues).empty()) line.words = std::move(joined);
    }
    Completion completion;
    completion.from = line.offsets[line.words.size() - 1];
    completion.shown = Candidates(grammar, line.words, catalogues);
    for (const std::string& candidate : completion.shown)
        completion.candidates.push_back(QuotedWord(candidate));
    if (completion.candidates.size() == 1) completion.candidates[0] += ' ';
    return completion;
}

void AddComplete(CLI::App& app)
{
    auto* const complete = app.add_subcommand("complete", "Show what the last word may become")->group("");
    const auto words = std::make_shared<Words>();
    complete->add_option("WORD", *words);
    complete->callback([&app, words] { PrintCandidates(app, *words); });
}

bool SetsSecret(const std::vector<std::string>& words, const Catalogues& catalogues)
{
    if (words.empty() || words[0] != "set") return false;
    return std::ranges::any_of(words, [&](const std::string& word) {
        const std::string name = word.substr(0, word.find('='));
        return std::ranges::any_of(catalogues, [&](const auto& catalogue) {
            ParamDescriptor* const descriptor = catalogue->Find(name);
            return descriptor && descriptor->HasClassName("password");
        });
    });
}
