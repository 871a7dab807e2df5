#include "config/base/local_process.h"

#include <pwd.h>

#include <algorithm>
#include <array>
#include <fstream>

#include "config/base/harmless.h"

namespace vexa {

namespace {

std::string UserText(uid_t user)
{
    std::array<char, 4096> strings;
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(user, &entry, strings.data(), strings.size(), &found);
    return found ? found->pw_name : std::to_string(user);
}

}  // namespace

std::string ProcessText(pid_t process, uid_t user)
{
    return "pid " + std::to_string(process) + " user " + UserText(user);
}

std::string ProgramName(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::array<char, 64> name{};
    file.read(name.data(), name.size() - 1);
    std::string text(name.data(), static_cast<size_t>(file.gcount()));
    if (text.ends_with('\n')) text.pop_back();
    std::ranges::replace_if(
        text, [](char c) { return c == '\n' || c == '\t'; }, '?');
    return Harmless(text);
}

}  // namespace vexa
