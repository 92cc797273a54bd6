#include <android/binder_ibinder.h>
#include <qmkvhost/CallingUid.h>

#include <unistd.h>

#include <atomic>

namespace {
// -1: no override. Atomic because the plug-in asks from the framework's threads.
std::atomic<int64_t> gCallingUid{-1};
}  // namespace

extern "C" {

uid_t AIBinder_getCallingUid(void) {
    int64_t uid = gCallingUid.load();
    return uid < 0 ? getuid() : static_cast<uid_t>(uid);
}

void host_setCallingUid(uid_t uid) { gCallingUid.store(uid); }

void host_resetCallingUid(void) { gCallingUid.store(-1); }

}  // extern "C"
