/// VEXA_EXPORT: what the library shows to programs. Everything else is hidden.
#pragma once

/// Before a class or a function that programs may use.
#define VEXA_EXPORT __attribute__((visibility("default")))
