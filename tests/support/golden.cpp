#include "support/golden.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

namespace {

/// The tokens of every entry, by its name.
std::map<std::string, std::string> ReadEntries()
{
    std::map<std::string, std::string> entries;
    std::ifstream file(VEXA_SOURCE_DIR "/tests/golden/bytes.txt");
    std::string name;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') continue;
        const size_t end = line.find(' ');
        if (end > 0) name = line.substr(0, end);
        entries[name] += line.substr(end);
    }
    return entries;
}

std::string BytesOf(const std::string& token, bool bigEndian)
{
    if (token[0] == '"') return token.substr(1, token.size() - 2);
    std::string bytes;
    for (size_t digit = 0; digit < token.size(); digit += 2)
        bytes += static_cast<char>(std::stoi(token.substr(digit, 2), nullptr, 16));
    if (!bigEndian) std::ranges::reverse(bytes);
    return bytes;
}

}  // namespace

std::string Golden(const std::string& name, std::endian order)
{
    static const auto entries = ReadEntries();
    const auto found = entries.find(name);
    EXPECT_NE(found, entries.end()) << "no golden bytes of " << name;
    if (found == entries.end()) return "";
    const bool bigEndian = order == std::endian::big || name.starts_with("network.");
    std::istringstream tokens(found->second);
    std::string bytes;
    for (std::string token; tokens >> token;) bytes += BytesOf(token, bigEndian);
    return bytes;
}
