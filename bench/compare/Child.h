#ifndef ZYL_BENCH_CHILD_H
#define ZYL_BENCH_CHILD_H

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

/// The figures that a process has printed, one to a line: a name, a blank and a number.
using Figures = std::map<std::string, double>;

/// A process started from here: the program itself in a role (see Roles.h), or a command. It is killed with
/// this object if it has not ended by then.
class Child {
  public:
    /// `command` is looked for along the path; it inherits the environment.
    explicit Child(const std::vector<std::string>& command);
    /// This program with the arguments "role", the role's name and its options.
    static Child InRole(const std::vector<std::string>& arguments);
    Child(Child&& other) noexcept;
    Child& operator=(Child&&) = delete;
    ~Child();

    /// Lets the process go on from where it lingers, waits for its end and gives its figures. Throws when it
    /// failed.
    Figures Finish();

  private:
    std::string m_name;
    pid_t m_pid = -1;
    int m_input = -1;   ///< a process that lingers waits for its end
    int m_output = -1;  ///< what it prints
};

#endif
