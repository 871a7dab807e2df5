/// A client of the queues whose daemon answers anything: one piece before the right answer to each request.
#include <memory>
#include <thread>

#include "config/access/client/queues/exchange_lock.h"
#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "fuzz/listener.h"
#include "fuzz/queue.h"

namespace {

/// The daemon's queue, as far as clients see it: it takes requests.
struct Daemon {
    Daemon()
    {
        mq_unlink(mq::kRequestQueue);
        requests = mq::CreateQueue(mq::kRequestQueue, O_RDWR);
        Require(requests != -1, "there is a queue");
        factory = new mq::PosixMQFactory;
    }
    /// Not before: a client looks for the name.
    ~Daemon() { mq_unlink(mq::kRequestQueue); }
    mqd_t requests;
    mq::PosixMQFactory* factory;
};

/// Answers every request with the next piece, and then rightly, up to an empty request.
void Serve(mqd_t requests, mqd_t answers, Pieces pieces)
{
    for (;;) {
        char bytes[mq::kQueueMessageBytes + 1] = {};
        if (mq_receive(requests, bytes, sizeof bytes, nullptr) <= 0) return;
        mq::XCONFIGMGR_CONNECTION_REQUEST_T request;
        vexa::wire::Decode<vexa::wire::HostOrder>(bytes, sizeof bytes, request);
        mq::XCONFIGMGR_RESPONSE_T answer;
        answer.msgtype = ResponseTo(eMessageType_t{request.msgtype});
        answer.info = request.info;
        SendNow(answers, pieces.Next());
        SendNow(answers, RecordBytes(answer));
    }
}

/// Each request leaves one message behind at most, and the queue may have room for ten.
void UseClient(mq::PosixMQClient& client)
{
    Listener listener;
    unsigned int number;
    std::string text;
    client.Get(eParamID_RegisterSave, number);
    client.Set(eParamID_RegisterSave, 1);
    client.Get(eParamID_ReelName, text);
    client.Set(eParamID_ReelName, text.substr(0, 100));
    client.AddConfigEventListener(&listener);
    client.Get(eParamID_RegisterSave, number);
    client.RemoveConfigEventListener(&listener);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    [[maybe_unused]] static Config& catalogue = OpenStore();
    static Daemon daemon;
    const mqd_t queue = MakeClientQueue();
    std::thread server(Serve, daemon.requests, queue, Pieces(data, size));
    daemon.factory->ConfirmConnection(daemon.requests, queue, kConnection, 0);
    mq::DrainQueue(queue);
    auto* const client = new mq::PosixMQClient(kConnection, 0, daemon.requests, queue,
                                               std::make_shared<mq::SharedExchanges>(), 0);
    UseClient(*client);
    daemon.factory->Disconnect(client);
    mq_send(daemon.requests, "", 0, 0);
    server.join();
    return 0;
}
