#pragma once

/// Marks what the installed libraries offer to applications: classes, and functions that are
/// defined in sources. Everything else stays inside them, so that neither private classes nor the
/// libraries that they are built from can clash with an application's own.
#define TANDRELL_API __attribute__((visibility("default")))
