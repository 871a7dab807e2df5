/// A program of its own against the installed library: connects to a store, watches it and changes a value.
#include <config/access/connector/config_factory_impl.h>
#include <config/config.h>
#include <config/descriptors/registry/registry.h>

#include <cstdio>

namespace {

/// Prints the changes of numbers.
class Printer : public ConfigEventListener {
  public:
    bool ParamChanged(eParam_t id, unsigned int value, timeval) override
    {
        printf("%s is now %u\n", GetDescriptor(id)->GetName().c_str(), value);
        ++changes;
        return true;
    }
    bool ParamChanged(eParam_t, std::string, timeval) override { return true; }
    int changes = 0;
};

}  // namespace

int main()
{
    CreateDescriptors();
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    Config* const config = connector->Connect("local:");
    if (!config) return 1;

    Printer printer;
    config->AddConfigEventListener(&printer);
    const bool stored = config->Set(eParamID_RegisterSave, 500u);  // corrected into its range of 1 to 20
    const bool corrected = config->Get(eParamID_RegisterSave) == 20;
    config->RemoveConfigEventListener(&printer);
    connector->Disconnect(config);
    return stored && corrected && printer.changes == 1 ? 0 : 1;
}
