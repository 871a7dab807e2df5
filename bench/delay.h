/// A path on which bytes take their time.
#pragma once

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "config/access/io/socket.h"

/// Stands before a TCP server of this host, up to the end of the process. Thread: any.
class Delay {
  public:
    Delay(int serverPort, std::chrono::milliseconds oneWay);
    int Port() const { return m_port; }

  private:
    int m_port;
};
