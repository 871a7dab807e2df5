/// Files, read and written whole. Thread: any.
#pragma once

#include <optional>
#include <string>

/// @param most  bytes. @param reason  why it was not read. @return nothing then.
std::optional<std::string> ReadFile(const std::string& path, size_t most, std::string& reason);

/// Writes a file in place of the one before it: beside it first, then renamed. What is no file, a terminal or a pipe, is
/// written to.
/// @param isPrivate  only its user can read it; else that is as with the file before it, or as usual.
/// @return why it was not written; empty when it was.
std::string WriteNewFile(const std::string& path, const std::string& content, bool isPrivate);
