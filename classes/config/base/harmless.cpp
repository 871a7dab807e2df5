#include "config/base/harmless.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace vexa {

namespace {

struct Character {
    uint32_t code = 0;
    size_t bytes = 0;  ///< 0: the text does not begin with UTF-8
};

/// The first character of a text that is not empty.
Character FirstOf(std::string_view text)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    constexpr struct {
        unsigned char mask, lead;
        uint32_t least;  ///< a smaller code has a shorter form
    } kForms[] = {{0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
    for (size_t length = 1; length <= std::min<size_t>(4, text.size()); ++length) {
        const auto& form = kForms[length - 1];
        if ((byte(0) & form.mask) != form.lead) continue;
        uint32_t code = byte(0) & static_cast<unsigned char>(~form.mask);
        for (size_t i = 1; i < length; ++i) {
            if ((byte(i) & 0xC0) != 0x80) return {};
            code = code << 6 | (byte(i) & 0x3F);
        }
        const bool isCharacter = code >= form.least && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
        return isCharacter ? Character{code, length} : Character{};
    }
    return {};
}

bool IsObeyed(uint32_t code)
{
    // Controls, then line separators, and marks that turn the direction of what follows.
    constexpr std::pair<uint32_t, uint32_t> kRanges[] = {{0x00, 0x08},     {0x0B, 0x1F},     {0x7F, 0x9F},
                                                         {0x061C, 0x061C}, {0x200E, 0x200F}, {0x2028, 0x202E},
                                                         {0x2066, 0x2069}};
    return std::ranges::any_of(
        kRanges, [code](const auto& range) { return range.first <= code && code <= range.second; });
}

void AppendNumber(std::string& text, const char* format, uint32_t number)
{
    char spelled[16];
    snprintf(spelled, sizeof spelled, format, number);
    text += spelled;
}

}  // namespace

bool IsPlain(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return (' ' <= c && c <= '~') || c == '\n' || c == '\t'; });
}

std::string Harmless(std::string_view text)
{
    if (IsPlain(text)) return std::string(text);
    std::string result;
    while (!text.empty()) {
        const Character first = FirstOf(text);
        if (first.bytes == 0)
            AppendNumber(result, "\\x%02x", static_cast<unsigned char>(text[0]));
        else if (IsObeyed(first.code))
            AppendNumber(result, "\\u%04x", first.code);
        else
            result.append(text.substr(0, first.bytes));
        text.remove_prefix(std::max<size_t>(first.bytes, 1));
    }
    return result;
}

}  // namespace vexa
