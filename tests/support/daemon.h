/// A daemon on free ports, as a program.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/program.h"

/// It is ready when it is made, and killed with its scope unless Stop or Wait was called.
class Daemon : public Program {
  public:
    explicit Daemon(const std::vector<std::string>& options = {"--no-mq"},
                    const std::vector<std::string>& environment = {"PRODUCT_ID=OAK"},
                    const std::string& program = MAINSTAY)
        : Program(CommandOf(program, options), "", environment)
    {
        WaitForOutput("mainstay: ready");
    }
    int TcpPort() const { return NumberAfter("TCP port ", Err()); }
    int UdpPort() const { return NumberAfter("UDP port ", Err()); }
    std::string Tcp() const { return "tcp://127.0.0.1:" + std::to_string(TcpPort()); }
    std::string Udp() const { return "udp://127.0.0.1:" + std::to_string(UdpPort()); }
    /// As a service manager does, which expects a good end.
    ProgramResult Stop(int signal = SIGTERM)
    {
        Signal(signal);
        ProgramResult result = Wait();
        EXPECT_EQ(result.status, 0) << result.err;
        return result;
    }

  private:
    /// Options that come later win.
    static std::vector<std::string> CommandOf(const std::string& program,
                                              const std::vector<std::string>& options)
    {
        std::vector<std::string> command{program};
        for (const char* const port : {"--tcp-port", "--udp-port"})
            if (std::ranges::find(options, port) == options.end()) command.insert(command.end(), {port, "0"});
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }
};
