#pragma once
// The machine's memory bandwidth, measured in the same run as what is compared with it (McCalpin 1995: a = b + s c).

#include <cstdint>

namespace orlix::bench {

// Bytes a second of a triad over arrays far larger than the caches, with this many threads; the best of seven passes
// after a warm-up. Counts 24 bytes an element. Measured once a thread count.
double TriadBandwidth(int threads);

// t: the time in which the bandwidth of all threads moves 8 bytes a cell, in seconds.
double CellTime(std::int64_t cells);

// All the threads that a benchmark uses.
int BenchThreads();

}  // namespace orlix::bench
