/// What is typed: lines of the shell as words, answers. Thread: any.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A line that may still be being typed.
struct LineWords {
    std::vector<std::string> words;
    bool isQuoteOpen = false;
    bool endsInside = false;      ///< nothing but a quote separates the end from the last word
    std::vector<size_t> offsets;  ///< where in the line each word begins
};

/// Splits at blanks; "..." and '...', at the beginning of a word or behind the = in it, keep blanks, and a
/// backslash inside them keeps the next character. A word that starts with # begins a comment.
LineWords ParseLine(std::string_view line);

/// The words of a line. @return nothing when a quote is not closed.
std::optional<std::vector<std::string>> SplitWords(std::string_view line);

/// A word as SplitWords takes it: in quotes, where it needs them.
std::string QuotedWord(const std::string& word);

/// Whether a question is answered with yes.
bool IsYes(std::string_view answer);
