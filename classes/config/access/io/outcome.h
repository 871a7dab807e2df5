/// Outcome: how an exchange of a client with its server, or a wait in it, ended.
#pragma once

namespace vexa {

enum class Outcome {
    kReceived,  ///< the awaited message has come
    kNotSent,   ///< the request did not leave
    kTimedOut,
    kStopped,  ///< the client is ending
    kFailed,   ///< errno may say why
};

}  // namespace vexa
