// Host-only view of what an AMediaFormat holds. The NDK offers no way to list
// a format's entries; the probe and the tests need one to print and compare
// whole formats.
#ifndef QMKV_HOST_FORMAT_ENTRIES_H_
#define QMKV_HOST_FORMAT_ENTRIES_H_

#include <vector>

#include <media/NdkMediaFormat.h>

namespace qmkvhost {

enum class FormatType { kInt32, kInt64, kSize, kFloat, kDouble, kRect, kString, kBuffer };

struct FormatEntry {
    const char *name;  // the format's own copy: valid until the format changes
    FormatType type;
};

// The entries of `format` in the order their names were first set; read each
// value with the AMediaFormat_get* call of its type. Empty for null.
std::vector<FormatEntry> formatEntries(AMediaFormat *format);
// The same into `out`, whose room is kept: for callers that list formats
// over and over.
void formatEntries(AMediaFormat *format, std::vector<FormatEntry> *out);

// "int32", "int64", "size", "float", "double", "rect", "string", "buffer".
const char *formatTypeName(FormatType type);

}  // namespace qmkvhost

#endif  // QMKV_HOST_FORMAT_ENTRIES_H_
