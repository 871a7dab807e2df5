#include "config/access/server/network/network_connection.h"

#include "config/base/log.h"
#include "config/config.h"
#include "config/values/config_value.h"

namespace vexa::corvalis::config::access {

namespace {

template <class Value, class Content>
bool Apply(Config& config, ConfigValue& object, timeval time, const char* mismatch)
{
    auto* const value = dynamic_cast<Value*>(&object);
    if (!value) {
        Print("%s", mismatch);
        return false;
    }
    Content content{};
    value->Get(content);
    return config.Set(value->GetParamID(), std::move(content), time);
}

}  // namespace

bool NetworkConnection::DoSetRequest(Config* config, ConfigValue* value, timeval time)
{
    switch (value ? value->GetClassID() : eClassID_Unset) {
        case eClassID_IntegerValue:
            return Apply<IntegerValue, unsigned int>(
                *config, *value, time,
                "NetworkConnection::DoSetRequest - type error, configValue is not an IntegerValue\n");
        case eClassID_StringValue:
            return Apply<StringValue, std::string>(
                *config, *value, time,
                "NetworkConnection::DoSetRequest - type error, configValue is not a StringValue\n");
        default:
            return Report("NetworkConnection::DoSetRequest - returning error (unsupported classID)\n");
    }
}

XCONFIGMGR_CONNECTION_RESPONSE_T NetworkConnection::Confirmation(const MessagePrefix& request,
                                                                 eMessageType_t type)
{
    XCONFIGMGR_CONNECTION_RESPONSE_T response;
    static_cast<MessagePrefix&>(response) = request;
    response.msgtype = type;
    return response;
}

XCONFIGMGR_RESPONSE_T NetworkConnection::ErrorResponse(const XCONFIGMGR_REQUEST_T& request,
                                                       eMessageType_t type, uint32_t error)
{
    if (error == 0) Print("WARNING: response.error was not supplied by caller!!!");
    XCONFIGMGR_RESPONSE_T response = ResponseFor(request, type);
    response.error = error;
    return response;
}

}  // namespace vexa::corvalis::config::access
