/// vexactl on a local store. The first line has the words of the command line; the rest is standard input.
#include <fcntl.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "fuzz/harness.h"
#include "vexactl/exit_status.h"

/// The tool's own main function.
int vexactl_main(int argc, char** argv);

namespace {

void Prepare()
{
    OpenStore();
    setenv("VEXACTL_DEVICE", "local:", 1);
    setenv("VEXA_LOG", "", 1);  // keeps standard error on, which the sanitizers need
    dup2(open("/dev/null", O_RDWR | O_CLOEXEC), STDIN_FILENO);  // no terminal
    stdout = fopen("/dev/null", "w");
    std::cout.rdbuf(nullptr);
}

/// Input that reaches other devices, writes files or takes long: waiting for changes, making another store.
bool Leaves(const std::string& text)
{
    const auto contains = [&](const char* word) { return text.find(word) != std::string::npos; };
    return std::ranges::any_of(
        std::initializer_list<const char*>{"-d", "--uri", "--control", "mq", "watch", "wait", "configid",
                                           "save", "diff", "--confirm"},
        contains);
}

std::vector<std::string> CommandLine(const std::string& line)
{
    std::vector<std::string> words{"vexactl"};
    std::istringstream stream(line);
    for (std::string word; std::getline(stream, word, ' ');) words.push_back(word.c_str());
    return words;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    [[maybe_unused]] static const bool prepared = (Prepare(), true);
    std::istringstream input(std::string(reinterpret_cast<const char*>(data), size));
    std::string line;
    std::getline(input, line);
    if (Leaves(line)) return 0;
    auto words = CommandLine(line);
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    std::cin.clear();
    std::cin.rdbuf(input.rdbuf());
    const int status = vexactl_main(static_cast<int>(arguments.size()), arguments.data());
    std::cin.rdbuf(nullptr);
    Require(status >= 0 && status <= static_cast<int>(ExitStatus::kTimedOut), "an exit status has a meaning");
    return 0;
}
