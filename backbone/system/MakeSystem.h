#ifndef ZYL_BACKBONE_SYSTEM_MAKESYSTEM_H
#define ZYL_BACKBONE_SYSTEM_MAKESYSTEM_H

#include <memory>

#include "system/System.h"

namespace zyl::backbone::system {

/// The operating system that this library is built for, as this process sees it. A process needs one. What
/// keeps it from being made, such as a want of descriptors, is a fatal error that says what.
std::unique_ptr<System> MakeSystem();

/// Has `handler` called in the child of every later fork, before fork returns there.
void OnForkInChild(void (*handler)());

/// In the child of a fork: closes everything that the parent's System has open, so that links and names end
/// with the parent. Nothing but this is done there, for nothing else is safe whatever the parent's other
/// threads were doing; what the parent has made may neither be used nor destroyed afterwards.
void LeaveToParent();

}  // namespace zyl::backbone::system

#endif
