#include "mainstay/actions/identity.h"

#include <array>

#include "config/base/origin.h"
#include "config/descriptors/descriptor_table.h"
#include "config/descriptors/string_descriptor.h"
#include "services/product/flash_info.h"
#include "services/product/serial_number.h"

namespace actions {

namespace {

void SetText(Config& store, eParam_t id, std::string text)
{
    auto* const descriptor = dynamic_cast<StringDescriptor*>(FindDescriptor(id));
    if (!descriptor) return;
    if (text.size() > descriptor->GetMaxLength()) text.resize(descriptor->GetMaxLength());
    store.Set(id, text);
}

}  // namespace

void SetIdentity(Config& store, const std::string& version)
{
    const vexa::OriginScope origin("start");
    SetText(store, eParamID_SWVersion, version);
    SetText(store, eParamID_Flash_Info, GetFlashInfo());
    std::array<unsigned char, 6> address{};
    if (!SerialNumber::GetMacAddress(address.data())) return;  // without it there is no serial number either
    SetText(store, eParamID_MACAddress, SerialNumber::GetMacAddress());
    const int serial = SerialNumber::GetSerialNumber();
    if (serial == 0) return;  // outside the ranges of the model
    if (FindDescriptor(eParamID_SerialNumber))
        store.Set(eParamID_SerialNumber, static_cast<unsigned int>(serial));
    SetText(store, eParamID_FormattedSerialNumber, SerialNumber::FormatSerialNumber(serial));
}

void SetSystemState(Config& store, SystemState state)
{
    const vexa::OriginScope origin("mainstay");
    if (FindDescriptor(eParamID_SystemState))
        store.Set(eParamID_SystemState, static_cast<unsigned int>(state));
}

}  // namespace actions
