// Host copy of the part of the NDK binder interface plug-ins use: who is
// calling. The host has no binder; the calling process is this one, unless
// a test plays another caller through host/CallingUid.h.
#ifndef ANDROID_BINDER_IBINDER_H
#define ANDROID_BINDER_IBINDER_H

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

#endif  // ANDROID_BINDER_IBINDER_H
