/// Outcome: how an exchange of a client with its server, or a wait in it, ended.
#pragma once

namespace vexa {

enum class Outcome {
    kReceived,  ///< what was waited for is there
    kNotSent,   ///< the request did not leave
    kTimedOut,
    kStopped,  ///< the client ends
    kFailed,   ///< errno may say why
};

}  // namespace vexa
