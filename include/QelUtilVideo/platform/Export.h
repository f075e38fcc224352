#pragma once

/// Marks what the shared library shows to its hosts; everything else stays hidden.
#define QEL_EXPORT __attribute__((visibility("default")))
