/// Reaching the daemon through message queues. The daemon's service runs in this process.
#include <fcntl.h>
#include <mqueue.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "config/access/io/message_queue.h"
#include "config/access/server/peer_stores.h"
#include "config/access/server/queues/queue_service.h"
#include "config/descriptors/registry/registry.h"
#include "parts.h"
#include "process.h"
#include "table.h"

namespace {

namespace mq = vexa::config::access;

constexpr eParam_t kNumber = eParamID_RegisterSave;

/// Answers 36 bytes with 52 on a thread of its own.
class PingPong {
  public:
    PingPong()
    {
        for (mqd_t* const queue : {&m_there, &m_back}) {
            const char* const name = queue == &m_there ? "/vexa_bench_there" : "/vexa_bench_back";
            mq_unlink(name);
            *queue = mq::CreateQueue(name, O_RDWR);
            mq_unlink(name);
        }
        m_thread = std::thread([this] {
            char bytes[8192];
            while (mq_receive(m_there, bytes, sizeof bytes, nullptr) > 0) mq_send(m_back, bytes, 52, 0);
        });
    }
    ~PingPong()
    {
        mq_send(m_there, "", 0, 0);
        m_thread.join();
        mq_close(m_there);
        mq_close(m_back);
    }
    void Exchange()
    {
        char bytes[8192] = {};
        mq_send(m_there, bytes, 36, 0);
        if (mq_receive(m_back, bytes, sizeof bytes, nullptr) != 52) abort();
    }

  private:
    mqd_t m_there, m_back;
    std::thread m_thread;
};

class Counting : public ConfigEventListener {
  public:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t, unsigned int, timeval) override { return ++heard > 0; }
    bool ParamChanged(eParam_t, std::string, timeval) override { return true; }
    std::atomic<unsigned int> heard = 0;
};

/// Changes a parameter a thousand times a second.
class Changes {
  public:
    explicit Changes(Config& store)
        : m_thread([this, &store] {
              for (unsigned int value = 0; !m_stop; ++value) {
                  store.Set(kNumber, value % 20 + 1);
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
              }
          })
    {
    }
    ~Changes()
    {
        m_stop = true;
        m_thread.join();
    }

  private:
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

/// Several connections at once, each on a thread of its own.
Work GetsOf(const std::vector<mq::PosixMQClient*>& clients)
{
    return [&clients](int gets) {
        std::vector<std::thread> threads;
        for (mq::PosixMQClient* const client : clients)
            threads.emplace_back([&, client] {
                for (size_t i = 0; i < static_cast<size_t>(gets) / clients.size(); ++i) client->Get(kNumber);
            });
        for (std::thread& thread : threads) thread.join();
    };
}

void CompareThreads(mq::PosixMQFactory& factory, mq::PosixMQClient& first)
{
    const std::vector<mq::PosixMQClient*> one{&first};
    std::vector<mq::PosixMQClient*> four{&first};
    while (four.size() < 4) four.push_back(factory.Connect(""));
    CompareRates("queue Get, four threads, against one", 20'000, GetsOf(one), GetsOf(four), 1);
    for (size_t i = 1; i < four.size(); ++i) factory.Disconnect(four[i]);
}

/// The daemon's service and a client of it.
struct Session {
    Session()
    {
        if (!client) PrintFigure("another daemon is running", "-");
    }
    ~Session() { factory.Disconnect(client); }

    vexa::config::access::QueueService service;
    const bool isServing = service.Start();
    mq::PosixMQFactory factory;  // ends the process if it finds no daemon
    mq::PosixMQClient* const client = isServing ? factory.Connect("") : nullptr;
};

/// Exchanges, in which client and server take turns anyway: on one processor.
void CompareOneByOne()
{
    Session session;
    if (!session.client) return;
    PingPong bare;
    const Work exchange = Repeat([&] { bare.Exchange(); }),
               get = Repeat([&] { session.client->Get(kNumber); });
    CompareRates("queue Get, against a bare exchange", 5000, exchange, get, 0.8);
    Counting listener;
    session.client->AddConfigEventListener(&listener);
    Config* const store = vexa::corvalis::config::access::OpenPeerStore(0);
    {
        const Changes changes(*store);
        CompareRates("queue Get, with 1000 events a second", 5000, exchange, get, 0.5);
    }
    vexa::corvalis::config::access::ClosePeerStore(store);
    session.client->RemoveConfigEventListener(&listener);
}

}  // namespace

void MeasureQueues()
{
    PrintPart("message queues");
    {
        const OneProcessor one;
        CompareOneByOne();
    }
    Session session;
    if (session.client) CompareThreads(session.factory, *session.client);
}
