#include "services/product/serial_number.h"

#include <net/if.h>
#include <netdb.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "config/base/log.h"
#include "services/product/bdx4_device.h"
#include "services/product/product_id.h"
#include "services/product/product_models.h"

namespace {

constexpr int kMacBytes = 6;

/// The number of the protocol "tcp". 0, which means the same for a stream socket, where no protocol table
/// exists.
int TcpProtocol()
{
    protoent entry{};
    protoent* found = nullptr;
    char buffer[1024];
    return getprotobyname_r("tcp", &entry, buffer, sizeof buffer, &found) == 0 && found ? found->p_proto : 0;
}

}  // namespace

bool SerialNumber::GetMacAddress(unsigned char* mac)
{
    memset(mac, 0, kMacBytes);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, TcpProtocol());
    if (fd < 0) return false;
    ifreq request{};
    strncpy(request.ifr_name, "eth0", sizeof request.ifr_name - 1);
    const bool found = ioctl(fd, SIOCGIFHWADDR, &request) == 0;
    if (found) memcpy(mac, request.ifr_hwaddr.sa_data, kMacBytes);
    close(fd);
    return found;
}

std::string SerialNumber::GetMacAddress()
{
    unsigned char mac[kMacBytes];
    if (!GetMacAddress(mac)) return "";
    char text[3 * kMacBytes];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    return text;
}

uint32_t SerialNumber::ConvertMACToSerial(const unsigned char* mac)
{
    return uint32_t{mac[2]} << 24 | uint32_t{mac[3]} << 16 | uint32_t{mac[4]} << 8 | uint32_t{mac[5]};
}

int SerialNumber::GetSerialNumber(uint32_t low, uint32_t high, uint32_t engLow, uint32_t engHigh,
                                  const unsigned char* mac)
{
    const uint32_t s = ConvertMACToSerial(mac);
    if (engLow < s && s < engHigh) return static_cast<int>(engLow - s);
    if (s <= low) return 0;
    return s < high ? static_cast<int>(s - low) : 0;
}

int SerialNumber::GetSerialNumber()
{
    unsigned char mac[kMacBytes];
    const bool haveAddress = GetMacAddress(mac);
    const ProductModel* model = FindProductModel(CProductID::getProductID());
    if (!model) {
        vexa::Print("%s: ERROR  Unknown ProductID\n", "FormatSerialNumber");
        return 0;
    }
    if (!haveAddress) return 0;
    const SerialRow& row = model->serial;
    return GetSerialNumber(row.low, row.high, row.engLow, row.engHigh, mac);
}

std::string SerialNumber::FormatSerialNumber(int serial, const char* prefix, unsigned int offset)
{
    char text[20];
    if (serial < 0)
        snprintf(text, sizeof text, "ENG%03u ", 0u - static_cast<unsigned int>(serial));
    else
        snprintf(text, sizeof text, "%s%06d  ", prefix,
                 static_cast<int>(static_cast<unsigned int>(serial) + offset));
    return text;
}

std::string SerialNumber::FormatSerialNumber(int serial)
{
    const ProductModel* model = FindProductModel(CProductID::getProductID());
    if (!model) vexa::Print("%s: ERROR.  Unknown ProductID.\n", "FormatSerialNumber");
    const SerialRow row = model ? model->serial : SerialRow{};
    return FormatSerialNumber(serial, row.prefix, row.offset);
}

std::string SerialNumber::GetFormattedSerialNumber()
{
    return FormatSerialNumber(GetSerialNumber());
}

std::string SerialNumber::GetBoardID(BDX4Device* device)
{
    if (!device) return "";
    char text[9];
    snprintf(text, sizeof text, "%08X", device->GetBoardID());
    return text;
}

std::string SerialNumber::GetBoardID()
{
    return "";
}
