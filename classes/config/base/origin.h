/// Who makes the changes of a thread.
#pragma once

#include <string>

#include "config/base/export.h"

namespace vexa {

/// Names the originator of whatever the thread changes while the object lives: "tcp 10.0.0.5:51234", "recall 5".
/// Scopes nest; the innermost one counts. Thread: made and destroyed on one thread.
class VEXA_EXPORT OriginScope {
  public:
    explicit OriginScope(std::string who);
    /// For every request of a client: nothing is copied.
    /// @param who  borrowed; outlives the scope, unchanged.
    explicit OriginScope(const std::string* who);
    ~OriginScope();
    OriginScope(const OriginScope&) = delete;
    OriginScope& operator=(const OriginScope&) = delete;

  private:
    const std::string m_own;
    const std::string* const m_outer;
};

/// Who makes the changes of the calling thread: for a listener, of the change that it hears. Empty: nobody has said.
/// Thread: any.
VEXA_EXPORT std::string CurrentOrigin();

}  // namespace vexa
