#include "services/product/read_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "config/base/log.h"

namespace {

/// Fills `text` to its size. False when the file ends earlier or cannot be read.
bool ReadFully(int file, std::string& text)
{
    size_t have = 0;
    while (have < text.size()) {
        const ssize_t n = read(file, text.data() + have, text.size() - have);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        have += static_cast<size_t>(n);
    }
    return true;
}

std::string ReadOpenFile(int file)
{
    struct stat status;
    if (fstat(file, &status) != 0) {
        vexa::Print("::read_file - fstat failed\n");
        return "";
    }
    std::string text;
    try {
        text.resize(static_cast<size_t>(status.st_size));
    } catch (const std::exception&) {
        vexa::Print("::read_file - malloc failed\n");
        return "";
    }
    if (!ReadFully(file, text)) {
        vexa::Print("::read_file - read failed to read enough data\n");
        return "";
    }
    return text;
}

}  // namespace

std::string ReadWholeFile(const char* path)
{
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    std::string text = ReadOpenFile(file);
    if (file >= 0) close(file);
    return text;
}
