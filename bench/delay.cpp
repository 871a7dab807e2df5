#include "delay.h"

#include <sys/socket.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

namespace {

using vexa::corvalis::config::access::Socket;
using Clock = std::chrono::steady_clock;

/// One direction of a connection: what was read waits until it is due.
class Direction {
  public:
    Direction(std::shared_ptr<Socket> from, std::shared_ptr<Socket> to, std::chrono::milliseconds delay)
    {
        const auto queue = std::make_shared<Queue>();
        std::thread([=] { Read(*from, *queue, delay); }).detach();
        std::thread([=] { Write(*to, *queue); }).detach();
    }

  private:
    struct Piece {
        Clock::time_point due;
        std::string bytes;  // none: the end
    };
    struct Queue {
        std::mutex lock;
        std::condition_variable changed;
        std::deque<Piece> pieces;
    };

    static void Read(Socket& from, Queue& queue, std::chrono::milliseconds delay)
    {
        std::string bytes;
        do {
            char buffer[64 * 1024];
            const int count = from.recv_some(buffer, sizeof buffer);
            bytes.assign(buffer, static_cast<size_t>(std::max(count, 0)));
            const std::lock_guard hold(queue.lock);
            queue.pieces.push_back({Clock::now() + delay, bytes});
            queue.changed.notify_one();
        } while (!bytes.empty());
    }
    static void Write(Socket& to, Queue& queue)
    {
        for (Piece piece = Next(queue); !piece.bytes.empty(); piece = Next(queue))
            to.send(piece.bytes.data(), static_cast<unsigned int>(piece.bytes.size()));
        to.close();
    }
    static Piece Next(Queue& queue)
    {
        std::unique_lock hold(queue.lock);
        queue.changed.wait(hold, [&] { return !queue.pieces.empty(); });
        Piece piece = std::move(queue.pieces.front());
        queue.pieces.pop_front();
        hold.unlock();
        std::this_thread::sleep_until(piece.due);
        return piece;
    }
};

void Serve(Socket& listener, int serverPort, std::chrono::milliseconds oneWay)
{
    for (;;) {
        const auto client = std::make_shared<Socket>(AF_INET, SOCK_STREAM);
        const auto server = std::make_shared<Socket>(AF_INET, SOCK_STREAM);
        if (!listener.accept(client.get()) || !server->create() || !server->connect("127.0.0.1", serverPort))
            return;
        Direction(client, server, oneWay);
        Direction(server, client, oneWay);
    }
}

}  // namespace

Delay::Delay(int serverPort, std::chrono::milliseconds oneWay)
{
    const auto listener = std::make_shared<Socket>(AF_INET, SOCK_STREAM);
    if (!listener->create() || !listener->bind("127.0.0.1", 0) || !listener->listen()) exit(1);
    m_port = listener->local_port();
    std::thread([=] { Serve(*listener, serverPort, oneWay); }).detach();
}
