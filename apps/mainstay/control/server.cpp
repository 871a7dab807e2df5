#include "mainstay/control/server.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config/base/deadline.h"
#include "config/base/log.h"
#include "config/base/no_signals.h"
#include "config/base/origin.h"

namespace control {

namespace {

constexpr mode_t kMode = 0660;

/// @return false when the path is too long.
bool MakeAddress(const std::string& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

int MakeSocket()
{
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

const sockaddr* Generic(const sockaddr_un& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

Json Error(const std::string& text)
{
    return {{"error", text}};
}

/// The parser repeats what it has read, which may be long.
Json NotUnderstood(const Json::exception& error)
{
    constexpr size_t kMaxBytes = 200;
    return Error("not understood: " + std::string(error.what()).substr(0, kMaxBytes));
}

}  // namespace

std::string SocketPath(const std::string& option, const std::string& stateDirectory)
{
    if (!option.empty()) return option;
    const char* const runtime = getenv("RUNTIME_DIRECTORY");
    const std::string directories = runtime ? runtime : "";
    const std::string directory =
        directories.empty() ? stateDirectory : directories.substr(0, directories.find(':'));
    return directory.empty() ? "" : directory + "/control";
}

/// One client. Thread: its own.
class ControlServer::Connection {
  public:
    Connection(const ControlServer& server, int socket) : m_server(server), m_socket(socket) {}
    ~Connection() { close(m_socket); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void Run();

  private:
    bool ReadLine(std::string& line);
    bool Receive();
    bool Wait(short events, const vexa::Deadline& deadline, int also = -1);
    bool Send(const std::string& bytes, unsigned int stallMs);
    bool Send(const Json& line) { return Send(Line(line), kAnswerStallMs); }
    bool AnswerTo(const std::string& line);
    Answer Handle(const std::string& line);
    bool Follow(Stream& stream);

    const ControlServer& m_server;
    const int m_socket;
    Peer m_peer;
    std::string m_input;
    size_t m_searched = 0;  // bytes of it without a line end
};

// --- life ---

ControlServer::ControlServer(Handlers handlers) : m_handlers(std::move(handlers)) {}

ControlServer::~ControlServer()
{
    if (m_stop != -1) eventfd_write(m_stop, 1);
    if (m_thread.joinable()) m_thread.join();
    {
        const vexa::MutexLock hold(m_lock);
        while (m_clients > 0) m_left.Wait(m_lock);
    }
    if (m_socket != -1) {
        unlink(m_path.c_str());
        close(m_socket);
    }
    if (m_stop != -1) close(m_stop);
}

bool ControlServer::Start(const std::string& path)
{
    m_path = path;
    if (!Listen()) return false;
    m_stop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_stop == -1) return vexa::Report("mainstay: no control socket: %s\n", strerror(errno));
    const vexa::NoSignals inherited;
    m_thread = std::thread([this] { Run(); });
    return true;
}

bool ControlServer::Listen()
{
    sockaddr_un address;
    if (!MakeAddress(m_path, address))
        return vexa::Report("mainstay: the path of the control socket is too long: %s\n", m_path.c_str());
    if (!RemoveStale()) return false;
    const int made = MakeSocket();
    // Nobody can connect before it listens, so the mode comes in time.
    if (made != -1 && bind(made, Generic(address), sizeof address) == 0 &&
        chmod(m_path.c_str(), kMode) == 0 && listen(made, SOMAXCONN) == 0) {
        m_socket = made;
        return true;
    }
    const int error = errno;
    if (made != -1) close(made);
    return vexa::Report("mainstay: cannot make the control socket %s: %s\n", m_path.c_str(), strerror(error));
}

/// A socket to which nobody listens is what a daemon has left that was killed.
bool ControlServer::RemoveStale() const
{
    struct stat status {};
    if (lstat(m_path.c_str(), &status) != 0) return true;
    if (!S_ISSOCK(status.st_mode)) return vexa::Report("mainstay: %s is no socket\n", m_path.c_str());
    sockaddr_un address;
    MakeAddress(m_path, address);
    const int probe = MakeSocket();
    const int error = connect(probe, Generic(address), sizeof address) == 0 ? 0 : errno;
    if (probe != -1) close(probe);
    // EAGAIN: it has more clients than it has accepted yet.
    if (error == 0 || error == EAGAIN)
        return vexa::Report("mainstay: another daemon serves %s\n", m_path.c_str());
    if (error == ECONNREFUSED && unlink(m_path.c_str()) == 0) return true;
    return vexa::Report("mainstay: cannot replace the control socket %s: %s\n", m_path.c_str(),
                        strerror(error));
}

// --- accepting ---

void ControlServer::Run()
{
    pthread_setname_np(pthread_self(), "ms-control");
    const vexa::PeerLog limited;
    pollfd awaited[] = {{m_socket, POLLIN, 0}, {m_stop, POLLIN, 0}};
    while (awaited[1].revents == 0) {
        try {
            if (poll(awaited, 2, -1) > 0 && awaited[0].revents != 0) Accept();
        } catch (const std::exception& error) {  // no memory, or no thread
            vexa::Print("mainstay: a client of the control socket was lost: %s\n", error.what());
        }
    }
}

void ControlServer::Accept()
{
    constexpr unsigned int kPauseMs = 100;
    const int client = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client == -1) {
        pollfd stop{m_stop, POLLIN, 0};
        if (errno != EAGAIN && errno != ECONNABORTED)
            poll(&stop, 1, kPauseMs);  // no descriptor: there may be one later
        return;
    }
    const vexa::MutexLock hold(m_lock);
    if (m_clients >= kMaxClients) {
        const std::string line = Line(Error("too many clients"));
        send(client, line.data(), line.size(), MSG_NOSIGNAL);
        close(client);
        return;
    }
    try {
        std::thread([this, client] { Serve(client); }).detach();
        ++m_clients;
    } catch (...) {
        close(client);
        throw;
    }
}

void ControlServer::Serve(int socket)
{
    pthread_setname_np(pthread_self(), "ms-ctl-client");
    const vexa::PeerLog limited;
    try {
        Connection(*this, socket).Run();
    } catch (...) {
        vexa::Print("mainstay: a client of the control socket was lost by an exception\n");
    }
    const vexa::MutexLock hold(m_lock);
    --m_clients;
    m_left.NotifyAll();
}

// --- one client ---

void ControlServer::Connection::Run()
{
    m_peer = PeerOf(m_socket);
    if (!IsPermitted(m_peer)) {
        vexa::Print("mainstay: %s may not use the control socket\n", m_peer.text.c_str());
        Send(Error("not permitted: only root, the daemon's user and members of its group"));
        return;
    }
    const vexa::OriginScope origin(&m_peer.text);
    std::string line;
    while (ReadLine(line) && AnswerTo(line)) continue;
}

/// @param also  a descriptor that ends the wait as well. @return false when the time is over or the server ends.
bool ControlServer::Connection::Wait(short events, const vexa::Deadline& deadline, int also)
{
    pollfd awaited[] = {{m_socket, events, 0}, {m_server.m_stop, POLLIN, 0}, {also, POLLIN, 0}};
    int found = 0;
    do found = poll(awaited, 3, deadline.PollTimeout());
    while (found == -1 && errno == EINTR);
    return found > 0 && awaited[1].revents == 0;
}

bool ControlServer::Connection::ReadLine(std::string& line)
{
    const vexa::Deadline deadline(kIdleMs);
    for (;;) {
        const size_t end = m_input.find('\n', m_searched);
        if (end != std::string::npos) {
            line = m_input.substr(0, end);
            m_input.erase(0, end + 1);
            m_searched = 0;
            return true;
        }
        m_searched = m_input.size();
        if (m_input.size() > kMaxLineBytes) {
            Send(Error("the request is longer than " + std::to_string(kMaxLineBytes) + " bytes"));
            return false;
        }
        if (!Wait(POLLIN, deadline) || !Receive()) return false;
    }
}

/// @return false at the end of the input.
bool ControlServer::Connection::Receive()
{
    char bytes[16'384];
    const ssize_t count = recv(m_socket, bytes, sizeof bytes, 0);
    if (count > 0) m_input.append(bytes, static_cast<size_t>(count));
    return count > 0 || (count == -1 && (errno == EAGAIN || errno == EINTR));
}

bool ControlServer::Connection::Send(const std::string& bytes, unsigned int stallMs)
{
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count > 0)
            sent += static_cast<size_t>(count);
        else if (errno != EINTR && (errno != EAGAIN || !Wait(POLLOUT, vexa::Deadline(stallMs))))
            return false;
    }
    return true;
}

/// @return false at the end of the connection.
bool ControlServer::Connection::AnswerTo(const std::string& line)
{
    const Answer answer = Handle(line);
    if (!Send(answer.line)) return false;
    return !answer.stream || Follow(*answer.stream);
}

Answer ControlServer::Connection::Handle(const std::string& line)
{
    try {
        const Json request = Json::parse(line);
        if (!request.is_object() || !request.contains("request"))
            return Error("a request is an object with a member \"request\"");
        const auto handler = m_server.m_handlers.find(request["request"].get<std::string>());
        if (handler == m_server.m_handlers.end())
            return Error("unknown request; {\"request\":\"help\"} lists the known ones");
        return handler->second(request, m_peer);
    } catch (const Json::exception& error) {
        return NotUnderstood(error);
    } catch (const std::exception& error) {
        return Error(error.what());
    }
}

/// Until the client closes. @return false always: a stream is the last answer of its connection.
bool ControlServer::Connection::Follow(Stream& stream)
{
    const vexa::Deadline forever(vexa::Deadline::kNever);
    while (Wait(POLLRDHUP, forever, stream.Descriptor())) {
        pollfd client{m_socket, POLLRDHUP, 0};
        if (poll(&client, 1, 0) > 0 || !Send(stream.Take(), kStreamStallMs)) return false;
    }
    return false;
}

}  // namespace control
