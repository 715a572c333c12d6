#ifndef ZYL_BENCH_RUNREPORTING_H
#define ZYL_BENCH_RUNREPORTING_H

/// What main does: calls `run` with the arguments and returns its status. If `run` raises an exception, one line
/// on standard error names `program` and the failure, and the status is 1.
int RunReporting(const char* program, int (*run)(int argc, char** argv), int argc, char** argv);

#endif
