// Host-only control of AIBinder_getCallingUid, so tests can play another
// calling process (for example the media server's uid, 1013).
#ifndef QMKV_HOST_CALLING_UID_H_
#define QMKV_HOST_CALLING_UID_H_

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// From now on AIBinder_getCallingUid returns `uid`, in every thread.
void host_setCallingUid(uid_t uid);
// Back to the process's own uid.
void host_resetCallingUid(void);

#ifdef __cplusplus
}  // extern "C"

// Sets the calling uid for one scope.
class HostCallingUidScope {
public:
    explicit HostCallingUidScope(uid_t uid) { host_setCallingUid(uid); }
    ~HostCallingUidScope() { host_resetCallingUid(); }
    HostCallingUidScope(const HostCallingUidScope &) = delete;
    HostCallingUidScope &operator=(const HostCallingUidScope &) = delete;
};
#endif

#endif  // QMKV_HOST_CALLING_UID_H_
