// AMediaFormat records as JSON objects keyed by the format's own key strings.
#ifndef QMKVPROBE_FORMAT_JSON_H_
#define QMKVPROBE_FORMAT_JSON_H_

#include <media/NdkMediaFormat.h>
#include <nlohmann/json.hpp>

namespace qmkvprobe {

// Integers as numbers, strings as strings, buffers as lowercase hex.
nlohmann::ordered_json formatToJson(AMediaFormat *format);

// `j` as one line of JSON. A file's names may hold any bytes: those that are
// not UTF-8 are replaced, never thrown over.
std::string jsonLine(const nlohmann::ordered_json &j);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_FORMAT_JSON_H_
