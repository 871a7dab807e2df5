/// Messages to the daemon, one a piece, at most 32: it keeps more replies than that for a client that does
/// not read.
#include <poll.h>

#include "config/access/server/queues/queue_service.h"
#include "fuzz/queue.h"

namespace {

constexpr int kMaxMessages = 32;
constexpr uint32_t kOwnRequest = 0xFFFFFFFF;

/// The daemon only repeats the identifier of a request, so no other one needs ours.
void ClearRequestID(std::string& message)
{
    constexpr size_t kRequestIDWord = 8;
    if (message.size() >= kRequestIDWord + sizeof(uint32_t)) message.replace(kRequestIDWord, 4, 4, '\0');
}

/// A request of our own. @return its answer.
mq::XCONFIGMGR_RESPONSE_T Ask(mqd_t daemon, mqd_t answers)
{
    mq::XCONFIGMGR_REQUEST_T request;
    request.msgtype = XCFG_SET_PARAM_REQUEST;
    request.info = {kConnection, kOwnRequest, 0, 0};
    request.paramID = eParamID_RegisterSave;
    request.value = 7;
    const std::string bytes = RecordBytes(request);
    const vexa::Deadline never(vexa::Deadline::kNever);
    mq::SendMessage(daemon, bytes.data(), bytes.size(), 0, never);
    mq::XCONFIGMGR_RESPONSE_T answer;
    while (answer.info.requestID != kOwnRequest) {
        std::vector<char> message;
        size_t length = 0;
        if (mq::WaitForQueue(answers, POLLIN, never) && mq::ReceiveMessage(answers, message, length))
            vexa::wire::Decode<vexa::wire::HostOrder>(message.data(), length, answer);
    }
    return answer;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Config& store = OpenStore();
    const mqd_t answers = MakeClientQueue();
    {
        vexa::config::access::QueueService service;
        Require(service.Start(), "the queue can be served");
        const mqd_t daemon = mq_open(mq::kRequestQueue, O_WRONLY | O_CLOEXEC);
        Pieces pieces(data, size);
        for (int i = 0; i < kMaxMessages && !pieces.IsEmpty(); ++i) {
            std::string message = pieces.Next().substr(0, mq::kQueueMessageBytes);
            ClearRequestID(message);
            mq::SendMessage(daemon, message.data(), message.size(), 0);
        }
        Require(Ask(daemon, answers).error == 0, "the daemon still answers");
        mq_close(daemon);
    }
    RequireService(store);
    mq_close(answers);
    mq_unlink(ClientQueueName().c_str());
    return 0;
}
