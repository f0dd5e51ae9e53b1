#pragma once

// The road of one command: read, measure, optimise, measure, audit, write, tell.

#include "options.h"

namespace morva::host {

/// Carries out a command and returns the exit code. Everything that goes wrong is told on the
/// standard error stream, in lines that begin with "morva: ".
int run(int argc, const char* const* argv);

/// `morva optimize`, and `morva auto`, which is that without parameters; throws host_error.
void optimize(const options& chosen);

/// `morva info`; throws host_error.
void info(const options& chosen);

} // namespace morva::host
