#ifndef ZYL_BACKBONE_PROCESS_H
#define ZYL_BACKBONE_PROCESS_H

#include <string>

namespace zyl::backbone {

/// This process's number.
int ProcessId();
/// The machine's host name.
std::string HostName();
/// The name of the user this process acts for; "uid<number>" for a user without a name.
std::string UserName();
/// Has `handler` called in the child of every later fork, before fork returns there.
void OnForkInChild(void (*handler)());

}  // namespace zyl::backbone

#endif
