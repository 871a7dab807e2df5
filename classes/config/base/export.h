/// VEXA_EXPORT: what the library shows to programs. Everything else is hidden.
#pragma once

#define VEXA_EXPORT __attribute__((visibility("default")))
