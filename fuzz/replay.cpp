/// Runs a harness over the files that are named, and over all in the directories that are named.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/harness.h"

namespace {

size_t inputs = 0;

void Replay(const std::filesystem::path& path)
{
    if (std::filesystem::is_directory(path)) {
        for (const auto& entry : std::filesystem::directory_iterator(path)) Replay(entry.path());
        return;
    }
    std::ifstream file(path, std::ios::binary);
    Require(file.good(), "the input can be read");
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    dprintf(STDOUT_FILENO, "%s\n", path.c_str());  // the last path is that of the input that fails
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    ++inputs;
}

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) Replay(argv[i]);
    Require(inputs > 0, "there are inputs");
}
