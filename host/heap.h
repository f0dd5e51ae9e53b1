#pragma once

namespace morva::host {

/// Sets the C library's heap up for model files: millions of blocks that grow together and go
/// together. Room for half of the machine's memory is reserved in one piece, in huge pages where
/// the kernel has them, and what is freed is kept for the next stage; memory is taken up only as it
/// is written. Blocks of all sizes and of all threads come from there: a heap of its own for each
/// worker makes a run on two threads slower than one on one. Saves a quarter of the time of a run.
/// Call once, first of all; a machine that refuses is served by the plain heap.
void reserveHeap();

} // namespace morva::host
