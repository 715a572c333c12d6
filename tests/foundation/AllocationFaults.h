#ifndef ZYL_TESTS_ALLOCATIONFAULTS_H
#define ZYL_TESTS_ALLOCATIONFAULTS_H

/// Stands in for the allocation library in a test program, whose own definitions win over the shared
/// library's: counts blocks and makes a chosen allocation fail.
class AllocationFaults {
  public:
    /// Blocks allocated and not freed.
    static int LiveBlocks();
    /// Makes the nth allocation from now (1 is the next) raise std::bad_alloc, and none after it; 0 disarms.
    static void FailAt(int nth);
};

#endif
