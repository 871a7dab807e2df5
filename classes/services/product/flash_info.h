/// The text of /var/www/flash_info.txt.
#pragma once

#include <string>

/// The file's content; "" without a message when it does not exist.
std::string GetFlashInfo();
