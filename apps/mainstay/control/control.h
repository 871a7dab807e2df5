/// The requests of the control socket, and what answers them. The protocol: docs/control.md.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "mainstay/control/peers.h"
#include "mainstay/control/stream.h"

namespace control {

/// Thrown by a handler: the request is answered with an error, and nothing has changed.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One line and, if there is a stream, those that follow.
struct Answer {
    Answer(Json answer)
        : line(std::move(answer)) {}  // NOLINT(google-explicit-constructor): handlers return Json
    Answer(Json answer, std::shared_ptr<Stream> following)
        : line(std::move(answer)), stream(std::move(following))
    {
    }

    Json line;                       ///< an object
    std::shared_ptr<Stream> stream;  ///< shared with who pushes the lines
};

/// @param request  an object. What it throws becomes the error that the client gets.
/// Thread: that of the client; several at a time. A handler may take its time: only its client waits.
/// Changes that it makes have the client as their origin.
using Handler = std::function<Answer(const Json& request, const Peer& who)>;
/// By the name of the request.
using Handlers = std::map<std::string, Handler>;

}  // namespace control
