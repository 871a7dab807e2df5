/// All parameters of the model, as data and as a page to read. Thread: the main thread.
#pragma once

#include "vexactl/session.h"

/// Prints the facts of Describe about every parameter, ascending by identifier: a JSON array, or one object a
/// line in a session of JSON; or a page of Markdown with a table per group.
ExitStatus PrintCatalogue(Session& session, bool markdown);
