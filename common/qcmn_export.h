// Core functions are exported from the plug-in library with C linkage under
// their own names; everything else stays hidden.
#ifndef QCMN_EXPORT_H_
#define QCMN_EXPORT_H_

#ifdef __cplusplus
#define QCMN_EXTERN_C extern "C"
#else
#define QCMN_EXTERN_C
#endif

#define QCMN_API QCMN_EXTERN_C __attribute__((visibility("default")))

#endif  // QCMN_EXPORT_H_
