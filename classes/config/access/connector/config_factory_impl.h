/// ConfigFactoryImpl: the process-wide connector, where every application gets its Config.
///
///     ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
///     Config* const config = connector->Connect("local:");
///     config->Set(eParamID_RegisterSave, 7);
///     connector->Disconnect(config);
///
/// Build the descriptors (config/descriptors/registry/registry.h) before the first Connect.
#pragma once

#include <memory>

#include "config/base/export.h"
#include "config/config_factory.h"

namespace vexa::config::access {
class LocalConfigFactory;
}
namespace vexa::corvalis::config::access {
class NetworkFactory;
}

/// Thread: any, unless an operation says otherwise.
class VEXA_EXPORT ConfigFactoryImpl : public ConfigFactory {
  public:
    /// The one connector, made on the first call. Without memory, one that connects nothing; the next call tries
    /// again. Thread: any.
    static ConfigFactory* GetInstance();
    /// Deletes the connector; the next GetInstance makes a new one. Stores that still have users live on,
    /// unknown to it. Thread: any, once no other thread uses the connector.
    static void DestroyInstance();

    ~ConfigFactoryImpl() override;

    void Run() override {}
    /// "tcp:", "udp:" and "multicast:" anywhere in the URI reach a store over the network, with
    /// "caching=true" through a cache; "local:" one in this process. The store is number N for "configid=N",
    /// else 0. A host that is no dotted address is looked up. Failures print one line; other URIs give null
    /// silently. A reply that does not come in time is reported with statistics of the system, which go to
    /// standard output.
    Config* Connect(std::string uri) override;
    /// A cache is left alive with its connection, deliberately: it may have listeners and other users. They
    /// remove their listeners before they free them; the connection stays for the life of the process.
    void Disconnect(Config* config) override;

  private:
    ConfigFactoryImpl();

    Config* ConnectNetwork(const std::string& uri);

    const std::unique_ptr<vexa::corvalis::config::access::NetworkFactory> m_networkFactory;
    const std::unique_ptr<vexa::config::access::LocalConfigFactory> m_localFactory;
};
