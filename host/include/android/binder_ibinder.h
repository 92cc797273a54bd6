// Host copy of the part of the NDK binder interface plug-ins use: who is
// calling. The host has no binder; the calling process is this one, unless
// a test plays another caller through qmkvhost/CallingUid.h.
#pragma once

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// The uid of the process whose binder call is being served, or this
// process's own uid outside a binder call.
uid_t AIBinder_getCallingUid(void);

#ifdef __cplusplus
}  // extern "C"
#endif
