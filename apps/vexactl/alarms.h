/// The verb alarms: lists, raises and clears alarms. Thread: the main thread.
#pragma once

#include <string>
#include <vector>

#include "vexactl/session.h"

/// The symbolic names of all alarms of the model.
std::vector<std::string> AlarmNames(Session& session);
/// One line per alarm: name, state, severity, errors. @param raisedOnly  leaves out clear alarms.
ExitStatus ListAlarms(Session& session, bool raisedOnly);
/// @param severity  by name; empty: that of the alarm at rest. @param text  of its error; empty: none.
ExitStatus RaiseAlarm(Session& session, const std::string& name, const std::string& severity,
                      const std::string& text);
/// Back to the alarm at rest.
ExitStatus ClearAlarm(Session& session, const std::string& name);
