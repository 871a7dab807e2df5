/// The language of names and values. Thread: the main thread, before there are others.
#pragma once

#include <string>
#include <vector>

/// Those of the translations that are installed beside the tool or with the system, and "en".
std::vector<std::string> Languages();
/// Puts the texts of all catalogues into one of them. @return false, with nothing done, on a machine that lacks the
/// locale C.UTF-8.
bool UseLanguage(const std::string& language);
