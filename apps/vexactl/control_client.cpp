#include "vexactl/control_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "config/base/deadline.h"
#include "vexactl/times.h"

namespace {

constexpr char kUsualPath[] = "/run/mainstay/control";

}  // namespace

std::string ControlClient::PathOf(const Session& session)
{
    return session.control.empty() ? kUsualPath : session.control;
}

ControlClient::ControlClient(const Session& session, bool mayBeInterrupted)
    : m_path(PathOf(session)),
      m_timeout(MillisecondsOf(session.timeout)),
      m_mayBeInterrupted(mayBeInterrupted),
      m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    Interrupts::Instance().Start();
    try {
        Connect();
    } catch (...) {
        close(m_socket);
        throw;
    }
}

ControlClient::~ControlClient()
{
    close(m_socket);
}

void ControlClient::Connect()
{
    sockaddr_un address{AF_UNIX, ""};
    if (m_path.size() >= sizeof address.sun_path)
        throw ConnectionError(m_path + ": the path is too long for a socket", ExitStatus::kUsage);
    memcpy(address.sun_path, m_path.c_str(), m_path.size() + 1);
    if (connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
    if (errno == EACCES || errno == EPERM)
        throw ConnectionError("not permitted to control the daemon at " + m_path +
                                  ": only root, its user and members of its group may",
                              ExitStatus::kRefused);
    throw ConnectionError("no daemon at the control socket " + m_path + ": " + strerror(errno));
}

/// @param milliseconds  Deadline::kNever: for a stream, whose reader may go meanwhile.
void ControlClient::Await(short events, unsigned int milliseconds)
{
    const vexa::Deadline deadline(milliseconds);
    for (;;) {
        pollfd awaited[] = {{m_socket, events, 0},
                            {m_mayBeInterrupted ? Interrupts::Instance().Fd() : -1, POLLIN, 0},
                            {deadline.IsLimited() ? -1 : STDOUT_FILENO, 0, 0}};
        const int found = poll(awaited, 3, deadline.PollTimeout());
        if (m_mayBeInterrupted) Interrupts::Instance().Check();
        if (awaited[2].revents & POLLERR) throw OutputClosed{};
        if (awaited[0].revents != 0) return;
        if (found == 0) throw ConnectionError("no answer from the daemon in time", ExitStatus::kTimedOut);
    }
}

void ControlClient::Send(const std::string& bytes, unsigned int milliseconds)
{
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count > 0)
            sent += static_cast<size_t>(count);
        else if (errno == EAGAIN)
            Await(POLLOUT, milliseconds);
        else if (errno != EINTR)
            return;  // it has closed, and may have said why
    }
}

Json ControlClient::Receive(unsigned int milliseconds)
{
    size_t end = 0, searched = 0;
    while ((end = m_input.find('\n', searched)) == std::string::npos) {
        searched = m_input.size();
        char bytes[16'384];
        const ssize_t count = recv(m_socket, bytes, sizeof bytes, 0);
        if (count > 0)
            m_input.append(bytes, static_cast<size_t>(count));
        else if (count == -1 && errno == EAGAIN)
            Await(POLLIN, milliseconds);
        else if (count == 0 || errno != EINTR)
            throw ConnectionError("the daemon has closed the connection");
    }
    Json answer = Json::parse(m_input.substr(0, end), nullptr, false);
    m_input.erase(0, end + 1);
    if (!answer.is_object()) throw ConnectionError(m_path + " does not speak as the daemon does");
    const auto error = answer.find("error");
    if (error != answer.end() && error->is_string())
        throw ConnectionError(error->get<std::string>(), ExitStatus::kRefused);
    return answer;
}

Json ControlClient::Ask(const Json& request)
{
    Send(Dump(request) + "\n", m_timeout);
    return Receive(m_timeout);
}

Json ControlClient::Next()
{
    return Receive(vexa::Deadline::kNever);
}
