#include "config/access/protocol/message_types.h"

const char* GetMessageName(uint32_t code)
{
    switch (code) {
#define MESSAGE(number, symbol, name) \
    case symbol:                      \
        return name;
#include "config/access/protocol/message_types.inc"
#undef MESSAGE
    }
    return "";
}
