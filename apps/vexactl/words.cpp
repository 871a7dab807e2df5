#include "vexactl/words.h"

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

bool IsBlank(char c)
{
    return kBlanks.find(c) != std::string_view::npos;
}

/// Takes one word from the line, at `at`, which is behind it afterwards.
std::string TakeWord(std::string_view line, size_t& at, bool& isQuoteOpen)
{
    std::string word;
    char quote = 0;
    for (; at < line.size() && (quote || !IsBlank(line[at])); ++at) {
        const char c = line[at];
        if (quote && c == '\\' && at + 1 < line.size())
            word += line[++at];
        else if (quote && c == quote)
            quote = 0;
        else if (!quote && (c == '"' || c == '\'') && (word.empty() || word.back() == '='))
            quote = c;
        else
            word += c;
    }
    isQuoteOpen = quote != 0;
    return word;
}

}  // namespace

LineWords ParseLine(std::string_view line)
{
    LineWords result;
    for (size_t at = 0;;) {
        while (at < line.size() && IsBlank(line[at])) ++at;
        result.endsInside = false;
        if (at == line.size() || line[at] == '#') return result;
        result.offsets.push_back(at);
        result.words.push_back(TakeWord(line, at, result.isQuoteOpen));
        result.endsInside = true;
        if (at == line.size()) return result;
    }
}

std::optional<std::vector<std::string>> SplitWords(std::string_view line)
{
    LineWords parsed = ParseLine(line);
    return parsed.isQuoteOpen ? std::nullopt : std::optional(std::move(parsed.words));
}

std::string QuotedWord(const std::string& word)
{
    const bool isPlain = !word.empty() && word.find_first_of(" \t\"'#\\") == std::string::npos;
    if (isPlain) return word;
    const size_t value = word.find('=') + 1;  // 0: the whole word
    std::string quoted = word.substr(0, value) + '"';
    for (const char c : word.substr(value)) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

bool IsYes(std::string_view answer)
{
    return answer == "y" || answer == "Y" || answer == "yes";
}
