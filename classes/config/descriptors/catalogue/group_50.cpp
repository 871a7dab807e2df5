#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/value_lists.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

constexpr unsigned int kStatic = 1, kDHCPWithFallback = 2;

/// Four parts of an address in one word, the first one highest.
constexpr unsigned int Address(unsigned int a, unsigned int b, unsigned int c, unsigned int d)
{
    return a << 24 | b << 16 | c << 8 | d;
}

/// What an address parameter holds.
struct Field {
    const char* name;
    const char* shortName;
    const char* what;
};
constexpr Field kAddress = {"IP Address", "IP", "Address"}, kMask = {"Subnet Mask", "Mask", "Subnet mask"},
                kGateway = {"Default Gateway", "Gate", "Default gateway"};

/// The port that uses it, and the value of the IP configuration that makes the port do so.
struct Use {
    const char* name;
    const char* shortName;
    int port;
    unsigned int ipConfig;
    const char* when;
};
constexpr const char kIsStatic[] = "it is static", kNoServer[] = "no DHCP server answers";
constexpr Use kPort1 = {"", "", 1, kStatic, kIsStatic}, kPort2 = {" Port 2", "2", 2, kStatic, kIsStatic},
              kPort1Fallback = {" Fallback", "1 Fb", 1, kDHCPWithFallback, kNoServer},
              kPort2Fallback = {" Port 2 Fallback", "2 Fb", 2, kDHCPWithFallback, kNoServer};

struct AddressRow {
    unsigned int address;  ///< the default
    eParam_t id;
    const char* idName;
    Field field;
    Use use;
};

// clang-format off
constexpr AddressRow kAddresses[] = {
    {Address(192, 168, 0, 2),    PARAM_ID(IPAddress),        kAddress, kPort1},
    {Address(255, 255, 255, 0),  PARAM_ID(SubnetMask),       kMask,    kPort1},
    {Address(192, 168, 0, 1),    PARAM_ID(DefaultGateway),   kGateway, kPort1},
    {Address(192, 168, 1, 2),    PARAM_ID(IPAddress_1),      kAddress, kPort2},
    {Address(255, 255, 255, 0),  PARAM_ID(SubnetMask_1),     kMask,    kPort2},
    {Address(192, 168, 1, 1),    PARAM_ID(DefaultGateway_1), kGateway, kPort2},
    {Address(10, 0, 0, 2),       PARAM_ID(IPAddress_2),      kAddress, kPort1Fallback},
    {Address(255, 0, 0, 0),      PARAM_ID(SubnetMask_2),     kMask,    kPort1Fallback},
    {Address(10, 0, 0, 1),       PARAM_ID(DefaultGateway_2), kGateway, kPort1Fallback},
    {Address(10, 1, 0, 2),       PARAM_ID(IPAddress_3),      kAddress, kPort2Fallback},
    {Address(255, 255, 0, 0),    PARAM_ID(SubnetMask_3),     kMask,    kPort2Fallback},
    {Address(10, 1, 0, 1),       PARAM_ID(DefaultGateway_3), kGateway, kPort2Fallback},
};
// clang-format on

void CreateAddress(const AddressRow& row)
{
    const auto& [address, id, idName, field, use] = row;
    Register(
        Integer(id, idName, std::string(field.name) + use.name, std::string(field.shortName) + use.shortName)
            .Type(eCParam_IPAddress)
            .NotInRegisters()
            .Reset(eFactoryReset_Network)
            .Range(0, 0xffffffff)
            .Default(address)
            .EnabledBy(eParamID_IPConfig, use.ipConfig)
            .Description(std::string(field.what) + " of Ethernet port " + std::to_string(use.port) +
                         " when " + use.when + "."));
}

void CreateIdentity()
{
    Register(String(PARAM_ID(SysName), "System Name", "Sys Name")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Length(0, 15)
                 .Attribute("field_width", 15)
                 .Description("Name of the unit in the network; empty uses model and serial number."));
    Register(String(PARAM_ID(MACAddress), "MAC Address", "MAC")
                 .Status()
                 .Length(0, 17)
                 .Description("Hardware address of Ethernet port 1."));
    Register(String(PARAM_ID(SystemPassword), "System Password", "Password")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Length(0, 32)
                 .ClassName("password")
                 .ClassName("panel_hidden")
                 .ClassName("rest_hidden")
                 .EnabledBy(eParamID_Authentication, 1)
                 .Description("Password that web and remote-control clients must give."));
    Register(Enum(PARAM_ID(Authentication), "Authentication", "Auth")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Values({{0, "Disabled"}, {1, "Basic"}})
                 .Description("Whether web and remote-control clients must give the system password."));
}

}  // namespace

/// Group 50: network. These settings belong to the place where the unit stands, so neither a preset nor an
/// ordinary reset changes them.
void CreateGroup_50()
{
    const int ports = CProductFeatures::canDoEthernets();
    const bool twoPorts = ports == 2;
    Register(Enum(PARAM_ID(LANSettings), "LAN Settings", "LAN")
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Values({{0, "Auto"}, {1, "1000 Mb/s"}, {2, "100 Mb/s"}, {3, "10 Mb/s"}})
                 .Description("Link rate of the Ethernet ports."));
    Register(
        Enum(PARAM_ID(IPConfig), "IP Config", "IP Conf")
            .NotInRegisters()
            .Reset(eFactoryReset_Network)
            .Values({{0, "DHCP"}, {kStatic, "Static"}, {kDHCPWithFallback, "DHCP with Fallback", "DHCP+Fb"}})
            .Dependent(eParamID_IPAddress)
            .Dependent(eParamID_SubnetMask)
            .Dependent(eParamID_DefaultGateway)
            .DependentIf(twoPorts, eParamID_IPAddress_1)
            .DependentIf(twoPorts, eParamID_SubnetMask_1)
            .DependentIf(twoPorts, eParamID_DefaultGateway_1)
            .Description("Where the Ethernet ports take their addresses from."));
    for (const AddressRow& row : kAddresses)
        if (row.use.port <= ports) CreateAddress(row);
    CreateIdentity();
}

}  // namespace vexa::config::catalogue
