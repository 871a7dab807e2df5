/// Files that are there whole or not at all. Thread: any.
#pragma once

#include <string>

/// Writes a file in place of the one before it: beside it first, then renamed. What is no file, a terminal or a pipe, is
/// written to.
/// @param isPrivate  only its user can read it; else that is as with the file before it, or as usual.
/// @return why it was not written; empty when it was.
std::string WriteNewFile(const std::string& path, const std::string& content, bool isPrivate);
