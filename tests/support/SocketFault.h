#ifndef ZYL_TESTS_SOCKETFAULT_H
#define ZYL_TESTS_SOCKETFAULT_H

/// While the object lives, socket() fails for one address family; SocketFault.cpp, linked into the test
/// program, takes the place of the system's function.
class SocketFault {
  public:
    SocketFault(int family, int error);
    ~SocketFault();
    SocketFault(const SocketFault&) = delete;
    SocketFault& operator=(const SocketFault&) = delete;

    /// How many calls have failed so far.
    int Failures() const;
};

#endif
