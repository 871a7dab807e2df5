/// The text of /var/www/flash_info.txt.
#pragma once

#include <string>

#include "config/base/export.h"

/// The file's content; "" without a message when it does not exist.
VEXA_EXPORT std::string GetFlashInfo();
