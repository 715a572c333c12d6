#ifndef ZYL_BENCH_CACHELINE_H
#define ZYL_BENCH_CACHELINE_H

/// The time in us in which two threads on these processors pass a word to and fro in shared memory. No message
/// can be faster; where a virtual machine's processors are moved about, it also tells which rounds to trust.
double CacheLineRoundTrip(int oneProcessor, int otherProcessor);

#endif
