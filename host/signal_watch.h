#pragma once

// A run that a signal ends leaves no unfinished files behind: a thread waits for INT, TERM, HUP
// and PIPE, removes the stage folders and ends the process by the same signal. Being a thread, it
// may lock and allocate, which a signal handler may not.
//
// A write to a pipe that nobody reads is no signal any more but an error of the write.

namespace morva::host {

/// Starts the thread. To be called once, before any other thread starts. Signals that the process
/// was started to ignore stay ignored; where no thread can be had, signals act as ever.
void watchSignals();

} // namespace morva::host
