#ifndef ZYL_TESTS_SOCKETFAULT_H
#define ZYL_TESTS_SOCKETFAULT_H

/// While the object lives, socket() fails for one address family; SocketFault.cpp, linked into the test
/// program, takes the place of the system's function.
class SocketFault {
  public:
    SocketFault(int family, int error) {
        s_family = family;
        s_error = error;
        s_failures = 0;
    }
    ~SocketFault() { s_family = -1; }
    SocketFault(const SocketFault&) = delete;
    SocketFault& operator=(const SocketFault&) = delete;

    /// How many calls have failed so far.
    static int Failures() { return s_failures; }

    static inline int s_family = -1;
    static inline int s_error = 0;
    static inline int s_failures = 0;
};

#endif
