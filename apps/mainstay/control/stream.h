/// Stream: lines for one client of the control socket that come as things happen.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "config/base/mutex.h"

namespace control {

using Json = nlohmann::json;

/// One line; bytes that are no UTF-8 are replaced.
std::string Line(const Json& json);

/// Who has lines pushes them, and waits for nobody. What the client does not take in time is left out and counted.
/// The client's connection holds the stream as long as it lives, so keep a std::weak_ptr. Thread: any.
class Stream {
  public:
    /// Bytes that wait for the client: some seconds of a busy device.
    static constexpr size_t kMaxBytes = size_t{1} << 20;

    /// Throws std::system_error without a descriptor.
    Stream();
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void Push(const Json& line) VEXA_EXCLUDES(m_lock);

    // For the connection.
    /// What waits; behind lines that were left out, {"skipped":N} stands in their place. Empty: nothing.
    std::string Take() VEXA_EXCLUDES(m_lock);
    /// Readable when something waits.
    int Descriptor() const { return m_descriptor; }

  private:
    const int m_descriptor;
    vexa::Mutex m_lock;
    std::string m_lines VEXA_GUARDED_BY(m_lock);
    size_t m_skipped VEXA_GUARDED_BY(m_lock) = 0;  // lines behind those
};

}  // namespace control
