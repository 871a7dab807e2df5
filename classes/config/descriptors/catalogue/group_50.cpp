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

/// The addresses of port 1: fixed, and when no server gives one.
void CreateFirstPort()
{
    Register(Integer(PARAM_ID(IPAddress), "IP Address", "IP")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(192, 168, 0, 2))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kStatic)
                 .Description("Address of Ethernet port 1 when it is static."));
    Register(Integer(PARAM_ID(SubnetMask), "Subnet Mask", "Mask")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(255, 255, 255, 0))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kStatic)
                 .Description("Subnet mask of Ethernet port 1 when it is static."));
    Register(Integer(PARAM_ID(DefaultGateway), "Default Gateway", "Gate")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(192, 168, 0, 1))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kStatic)
                 .Description("Default gateway of Ethernet port 1 when it is static."));
    Register(Integer(PARAM_ID(IPAddress_2), "IP Address Fallback", "IP1 Fb")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(10, 0, 0, 2))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kDHCPWithFallback)
                 .Description("Address of Ethernet port 1 when no DHCP server answers."));
    Register(Integer(PARAM_ID(SubnetMask_2), "Subnet Mask Fallback", "Mask1 Fb")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(255, 0, 0, 0))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kDHCPWithFallback)
                 .Description("Subnet mask of Ethernet port 1 when no DHCP server answers."));
    Register(Integer(PARAM_ID(DefaultGateway_2), "Default Gateway Fallback", "Gate1 Fb")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(10, 0, 0, 1))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kDHCPWithFallback)
                 .Description("Default gateway of Ethernet port 1 when no DHCP server answers."));
}

/// The same of port 2.
void CreateSecondPort()
{
    Register(Integer(PARAM_ID(IPAddress_1), "IP Address Port 2", "IP2")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(192, 168, 1, 2))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kStatic)
                 .Description("Address of Ethernet port 2 when it is static."));
    Register(Integer(PARAM_ID(SubnetMask_1), "Subnet Mask Port 2", "Mask2")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(255, 255, 255, 0))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kStatic)
                 .Description("Subnet mask of Ethernet port 2 when it is static."));
    Register(Integer(PARAM_ID(DefaultGateway_1), "Default Gateway Port 2", "Gate2")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(192, 168, 1, 1))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kStatic)
                 .Description("Default gateway of Ethernet port 2 when it is static."));
    Register(Integer(PARAM_ID(IPAddress_3), "IP Address Port 2 Fallback", "IP2 Fb")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(10, 1, 0, 2))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kDHCPWithFallback)
                 .Description("Address of Ethernet port 2 when no DHCP server answers."));
    Register(Integer(PARAM_ID(SubnetMask_3), "Subnet Mask Port 2 Fallback", "Mask2 Fb")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(255, 255, 0, 0))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kDHCPWithFallback)
                 .Description("Subnet mask of Ethernet port 2 when no DHCP server answers."));
    Register(Integer(PARAM_ID(DefaultGateway_3), "Default Gateway Port 2 Fallback", "Gate2 Fb")
                 .Type(eCParam_IPAddress)
                 .Range(0, 0xffffffff)
                 .Default(Address(10, 1, 0, 1))
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .EnabledBy(eParamID_IPConfig, kDHCPWithFallback)
                 .Description("Default gateway of Ethernet port 2 when no DHCP server answers."));
}

void CreateIdentity()
{
    Register(String(PARAM_ID(SysName), "System Name", "Sys Name")
                 .Length(0, 15)
                 .Attribute("field_width", 15)
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Description("Name of the unit in the network; empty uses model and serial number."));
    Register(String(PARAM_ID(MACAddress), "MAC Address", "MAC")
                 .Length(0, 17)
                 .Status()
                 .Description("Hardware address of Ethernet port 1."));
    Register(String(PARAM_ID(SystemPassword), "System Password", "Password")
                 .Length(0, 32)
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .ClassName("password")
                 .ClassName("panel_hidden")
                 .ClassName("rest_hidden")
                 .EnabledBy(eParamID_Authentication, 1)
                 .Description("Password that web and remote-control clients must give."));
    Register(Enum(PARAM_ID(Authentication), "Authentication", "Auth")
                 .Values({{0, "Disabled"}, {1, "Basic"}})
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Description("Whether web and remote-control clients must give the system password."));
}

}  // namespace

/// Group 50: network. These settings belong to the place where the unit stands, so neither a preset nor an
/// ordinary reset changes them.
void CreateGroup_50()
{
    const bool twoPorts = CProductFeatures::canDoEthernets() == 2;
    Register(Enum(PARAM_ID(LANSettings), "LAN Settings", "LAN")
                 .Values({{0, "Auto"}, {1, "1000 Mb/s"}, {2, "100 Mb/s"}, {3, "10 Mb/s"}})
                 .NotInRegisters()
                 .Reset(eFactoryReset_Network)
                 .Description("Link rate of the Ethernet ports."));
    Register(
        Enum(PARAM_ID(IPConfig), "IP Config", "IP Conf")
            .Values({{0, "DHCP"}, {kStatic, "Static"}, {kDHCPWithFallback, "DHCP with Fallback", "DHCP+Fb"}})
            .NotInRegisters()
            .Reset(eFactoryReset_Network)
            .Dependent(eParamID_IPAddress)
            .Dependent(eParamID_SubnetMask)
            .Dependent(eParamID_DefaultGateway)
            .DependentIf(twoPorts, eParamID_IPAddress_1)
            .DependentIf(twoPorts, eParamID_SubnetMask_1)
            .DependentIf(twoPorts, eParamID_DefaultGateway_1)
            .Description("Where the Ethernet ports take their addresses from."));
    CreateFirstPort();
    if (twoPorts) CreateSecondPort();
    CreateIdentity();
}

}  // namespace vexa::config::catalogue
