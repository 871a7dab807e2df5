#include "config/access/config_factory_impl.h"

#include <cstdio>

#include "config/access/local_config_factory.h"
#include "config/semaphore_helper.h"

namespace {

StaticLock instanceLock;
ConfigFactoryImpl* instance VEXA_GUARDED_BY(instanceLock) = nullptr;

bool Contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

bool IsNetworkUri(const std::string& uri)
{
    return Contains(uri, "tcp:") || Contains(uri, "udp:") || Contains(uri, "multicast:");
}

}  // namespace

ConfigFactory* ConfigFactoryImpl::GetInstance()
{
    SemaphoreHelper hold(instanceLock);
    if (!instance) instance = new ConfigFactoryImpl;
    return instance;
}

void ConfigFactoryImpl::DestroyInstance()
{
    SemaphoreHelper hold(instanceLock);
    delete instance;
    instance = nullptr;
}

ConfigFactoryImpl::ConfigFactoryImpl()
    : m_localFactory(std::make_unique<vexa::config::access::LocalConfigFactory>())
{
}

ConfigFactoryImpl::~ConfigFactoryImpl() = default;

Config* ConfigFactoryImpl::Connect(std::string uri)
{
    if (IsNetworkUri(uri)) {
        // This version has no network clients.
        fputs("ConfigFactoryImpl::Connect - _network_factory->Connect() failed\n", stderr);
        return nullptr;
    }
    if (!Contains(uri, "local:")) return nullptr;
    Config* const config = m_localFactory->Connect(uri);
    if (!config)
        fprintf(stderr, "ConfigFactoryImpl::Connect - local factory return NULL Config* for uri = %s\n",
                uri.c_str());
    return config;
}

void ConfigFactoryImpl::Disconnect(Config* config)
{
    m_localFactory->Disconnect(config);
}
