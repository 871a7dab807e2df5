/// Changes of several parameters of a device, which get their new values together, or keep the old ones.
/// Thread: that of the session.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "config/base/deadline.h"
#include "vexactl/session.h"

struct ValueChange {
    Parameter parameter;
    Value from, to;
    bool isSent = false;  ///< the device may have the new value

    bool Differs() const { return from != to; }
};
using ValueChanges = std::vector<ValueChange>;

/// As they are to be written, see vexa::InSettingOrder.
ValueChanges InOrder(const ValueChanges& changes);

/// "IPAddress 10.0.0.9 -> 10.0.0.12 stored". @param result  "stored"
void PrintChanged(Session& session, const Parameter& parameter, const Value& from, const Value& to,
                  const std::string& result);

/// Waits until the device is in step. @return false when the time is over first. Throws Interrupted, if it may.
bool AwaitDevice(vexa::Device& device, const vexa::Deadline& deadline, bool mayBeInterrupted);

/// A device that has lost its connection says so a moment later.
inline constexpr std::chrono::milliseconds kUntilNoticed(100);

/// How far a list of changes has come.
struct Progress {
    ExitStatus status = ExitStatus::kDone;
    std::string name, reason;  ///< of the parameter that failed
};

/// Sets what differs, one after the other, up to the first failure; then once more what another one has changed
/// along. Throws Interrupted.
/// @param patience  until when a lost connection may come back.
Progress Write(vexa::Device& device, ValueChanges& changes, const vexa::Deadline& patience);

/// All of them, or none: tells each, and puts the old values back after a failure, a signal, or where nobody confirms.
/// @param confirm  seconds of the time to confirm, if somebody has to.
ExitStatus MakeChanges(Session& session, vexa::Device& device, const ValueChanges& changes,
                       const std::optional<double>& confirm);

/// A value for programs, as Parameter::ToJson has it, without what names the parameter.
Json ValueJson(const Parameter& parameter, const Value& value);
