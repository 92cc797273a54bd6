#include "format_json.h"

#include <stdio.h>

#include <qmkvhost/FormatEntries.h>

namespace qmkvprobe {

nlohmann::ordered_json formatToJson(AMediaFormat *format) {
    nlohmann::ordered_json j = nlohmann::ordered_json::object();
    for (const qmkvhost::FormatEntry &e : qmkvhost::formatEntries(format)) {
        switch (e.type) {
            case qmkvhost::FormatType::kInt32: {
                int32_t v = 0;
                AMediaFormat_getInt32(format, e.name, &v);
                j[e.name] = v;
                break;
            }
            case qmkvhost::FormatType::kInt64: {
                int64_t v = 0;
                AMediaFormat_getInt64(format, e.name, &v);
                j[e.name] = v;
                break;
            }
            case qmkvhost::FormatType::kSize: {
                size_t v = 0;
                AMediaFormat_getSize(format, e.name, &v);
                j[e.name] = v;
                break;
            }
            case qmkvhost::FormatType::kFloat: {
                float v = 0;
                AMediaFormat_getFloat(format, e.name, &v);
                j[e.name] = v;
                break;
            }
            case qmkvhost::FormatType::kDouble: {
                double v = 0;
                AMediaFormat_getDouble(format, e.name, &v);
                j[e.name] = v;
                break;
            }
            case qmkvhost::FormatType::kString: {
                const char *v = nullptr;
                AMediaFormat_getString(format, e.name, &v);
                j[e.name] = v != nullptr ? v : "";
                break;
            }
            case qmkvhost::FormatType::kBuffer: {
                void *data = nullptr;
                size_t size = 0;
                AMediaFormat_getBuffer(format, e.name, &data, &size);
                std::string hex;
                char byte[3];
                for (size_t i = 0; i < size; ++i) {
                    snprintf(byte, sizeof(byte), "%02x", static_cast<const uint8_t *>(data)[i]);
                    hex += byte;
                }
                j[e.name] = hex;
                break;
            }
            case qmkvhost::FormatType::kRect: {
                int32_t l = 0, t = 0, r = 0, b = 0;
                AMediaFormat_getRect(format, e.name, &l, &t, &r, &b);
                j[e.name] = {l, t, r, b};
                break;
            }
        }
    }
    return j;
}

std::string jsonLine(const nlohmann::ordered_json &j) {
    return j.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace qmkvprobe
