// Internal: the configuration parsers record why they found a
// configuration malformed, for qcmn_config_error.
#ifndef QEXTRACTORCMN_QCMN_CONFIG_ERROR_H_
#define QEXTRACTORCMN_QCMN_CONFIG_ERROR_H_

#include <stdint.h>

namespace qcmn {

// Forgets the reason of an earlier call on this thread.
void clear_config_error();

// Records `why`, a string literal, and returns -1: the malformed result of
// both parsers.
int32_t malformed(const char *why);

}  // namespace qcmn

#endif  // QEXTRACTORCMN_QCMN_CONFIG_ERROR_H_
