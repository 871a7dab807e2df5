/// One small file as text.
#pragma once

#include <string>

/// The whole content of a file, "" when it cannot be read. Each failure prints one line on standard error:
/// "::read_file - fstat failed\n" (no such file as well), "::read_file - malloc failed\n" or
/// "::read_file - read failed to read enough data\n" (the file shrank meanwhile).
std::string ReadWholeFile(const char* path);
