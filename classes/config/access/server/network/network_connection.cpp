#include "config/access/server/network/network_connection.h"

#include <utility>

#include "config/base/log.h"
#include "config/config.h"
#include "config/values/config_value.h"

namespace vexa::corvalis::config::access {

namespace {

template <class Value, class Content, class Store>
bool Apply(ConfigValue& object, const char* mismatch, const Store& store)
{
    auto* const value = dynamic_cast<Value*>(&object);
    if (!value) return Report("%s", mismatch);
    Content content{};
    value->Get(content);
    return store(value->GetParamID(), std::move(content));
}

}  // namespace

bool NetworkConnection::DoSetRequest(Config* config, ConfigValue* value, timeval time)
{
    switch (value ? value->GetClassID() : eClassID_Unset) {
        case eClassID_IntegerValue:
            return Apply<IntegerValue, unsigned int>(
                *value, "NetworkConnection::DoSetRequest - type error, configValue is not an IntegerValue\n",
                [&](eParam_t id, unsigned int number) { return config->Set(id, number, time); });
        case eClassID_StringValue:
            return Apply<StringValue, std::string>(
                *value, "NetworkConnection::DoSetRequest - type error, configValue is not a StringValue\n",
                [&](eParam_t id, std::string text) {
                    return SetText(*config, id, text.size(), [&] { return config->Set(id, text, time); });
                });
        default:
            return Report("NetworkConnection::DoSetRequest - returning error (unsupported classID)\n");
    }
}

std::string NetworkConnection::TextOf(ConfigValue& value)
{
    std::string text;
    unsigned int number = 0;
    if (auto* const ofText = dynamic_cast<StringValue*>(&value)) {
        ofText->Get(text);
    } else if (auto* const ofNumber = dynamic_cast<IntegerValue*>(&value)) {
        ofNumber->Get(number);
        text = std::to_string(number);
    }
    return text;
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
