// Why the last configuration parse on this thread failed: a pointer to a
// string literal, so that recording it costs nothing per frame.
#include "qextractorcmn/qcmn_config_error.h"

#include "qextractorcmn/qextractorcmn.h"

static_assert(QVID_CFG_ERR_MALFORMED == -1 && QAUD_CFG_ERR_MALFORMED == -1, "one malformed result for both parsers");

namespace qcmn {

namespace {
thread_local const char *t_config_error = nullptr;
}  // namespace

void clear_config_error() { t_config_error = nullptr; }

int32_t malformed(const char *why) {
    t_config_error = why;
    return -1;
}

}  // namespace qcmn

QCMN_API const char *qcmn_config_error(void) { return qcmn::t_config_error; }
