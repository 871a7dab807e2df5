#include "services/product/flash_info.h"

#include <unistd.h>

#include "services/product/read_file.h"

std::string GetFlashInfo()
{
    constexpr const char* kPath = "/var/www/flash_info.txt";
    return access(kPath, F_OK) == 0 ? ReadWholeFile(kPath) : "";
}
