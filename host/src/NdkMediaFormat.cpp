// The host's AMediaFormat: a small ordered list of typed entries.
#include <media/NdkMediaFormat.h>

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include <qmkvhost/FormatEntries.h>
#include <utils/Log.h>

#undef LOG_TAG
#define LOG_TAG "AMediaFormat"

using qmkvhost::FormatType;

struct AMediaFormat {
    struct Entry {
        std::string name;
        const void *key = nullptr;  // the name pointer last used: a hint, never read through
        FormatType type = FormatType::kInt32;
        union {
            int32_t i32;
            int64_t i64;
            size_t size;
            float f;
            double d;
            int32_t rect[4];
        } v = {};
        std::string str;             // kString
        std::vector<uint8_t> bytes;  // kBuffer
    };

    // Entries are held by pointer so that the string and buffer storage that
    // getters hand out does not move when other entries are added.
    std::vector<std::unique_ptr<Entry>> entries;
    std::string text;  // the last toString result

    Entry *find(const char *name) const {
        // Callers pass the same key constants again and again; a pointer
        // that matches is still checked, as callers may reuse a buffer.
        for (const auto &e : entries) {
            if (e->key == name) {
                if (strcmp(e->name.c_str(), name) == 0) return e.get();
                break;
            }
        }
        for (const auto &e : entries) {
            if (strcmp(e->name.c_str(), name) == 0) return e.get();
        }
        return nullptr;
    }

    Entry *find(const char *name, FormatType type) const {
        Entry *e = find(name);
        return e != nullptr && e->type == type ? e : nullptr;
    }

    // Entries a clear() dropped, kept for the next sets: a track source
    // clears and refills each sample's format, which should not cost an
    // allocation per key.
    std::vector<std::unique_ptr<Entry>> spare;
    static const size_t kMaxSpare = 32;

    std::unique_ptr<Entry> make(const char *name, FormatType type) {
        std::unique_ptr<Entry> e;
        if (spare.empty()) {
            e = std::make_unique<Entry>();
        } else {
            // Preferably the spare that held this very key.
            size_t pick = spare.size() - 1;
            for (size_t i = 0; i < spare.size(); ++i)
                if (spare[i]->key == name) pick = i;
            e = std::move(spare[pick]);
            spare.erase(spare.begin() + (long)pick);
            e->str.clear();
            e->bytes.clear();
        }
        if (e->key != name || strcmp(e->name.c_str(), name) != 0) e->name = name;
        e->key = name;
        e->type = type;
        return e;
    }

    // The entry a number is written to: the existing one of that name,
    // which keeps its place, or a new one at the end.
    Entry *number(const char *name, FormatType type) {
        Entry *e = find(name);
        if (e == nullptr) {
            entries.push_back(make(name, type));
            return entries.back().get();
        }
        e->type = type;
        return e;
    }

    void clear() {
        for (auto &e : entries)
            if (spare.size() < kMaxSpare) spare.push_back(std::move(e));
        entries.clear();
    }

    // Installs a fully built replacement for `name`. A name that is set again
    // keeps its place in the order.
    void put(std::unique_ptr<Entry> fresh) {
        for (auto &e : entries) {
            if (e->name == fresh->name) {
                e = std::move(fresh);
                return;
            }
        }
        entries.push_back(std::move(fresh));
    }
};

namespace {

bool usable(const AMediaFormat *format, const char *name) {
    return format != nullptr && name != nullptr;
}

}  // namespace

extern "C" {

AMediaFormat *AMediaFormat_new(void) {
    return new AMediaFormat;
}

media_status_t AMediaFormat_delete(AMediaFormat *format) {
    delete format;
    return AMEDIA_OK;
}

const char *AMediaFormat_toString(AMediaFormat *format) {
    if (format == nullptr) return nullptr;
    std::string text;
    char value[96];
    for (const auto &e : format->entries) {
        if (!text.empty()) text += ", ";
        text += e->name;
        text += ": ";
        switch (e->type) {
            case FormatType::kInt32:
                snprintf(value, sizeof(value), "int32(%" PRId32 ")", e->v.i32);
                break;
            case FormatType::kInt64:
                snprintf(value, sizeof(value), "int64(%" PRId64 ")", e->v.i64);
                break;
            case FormatType::kSize:
                snprintf(value, sizeof(value), "size_t(%zu)", e->v.size);
                break;
            case FormatType::kFloat:
                snprintf(value, sizeof(value), "float(%f)", e->v.f);
                break;
            case FormatType::kDouble:
                snprintf(value, sizeof(value), "double(%f)", e->v.d);
                break;
            case FormatType::kRect:
                snprintf(value, sizeof(value), "Rect(%" PRId32 ", %" PRId32 ", %" PRId32 ", %" PRId32 ")",
                         e->v.rect[0], e->v.rect[1], e->v.rect[2], e->v.rect[3]);
                break;
            case FormatType::kString:
                text += "string(" + e->str + ")";
                continue;
            case FormatType::kBuffer:
                snprintf(value, sizeof(value), "data(%zu bytes)", e->bytes.size());
                break;
        }
        text += value;
    }
    format->text = std::move(text);
    return format->text.c_str();
}

bool AMediaFormat_getInt32(AMediaFormat *format, const char *name, int32_t *out) {
    if (!usable(format, name)) return false;
    const AMediaFormat::Entry *e = format->find(name, FormatType::kInt32);
    if (e == nullptr) return false;
    if (out != nullptr) *out = e->v.i32;
    return true;
}

bool AMediaFormat_getInt64(AMediaFormat *format, const char *name, int64_t *out) {
    if (!usable(format, name)) return false;
    const AMediaFormat::Entry *e = format->find(name, FormatType::kInt64);
    if (e == nullptr) return false;
    if (out != nullptr) *out = e->v.i64;
    return true;
}

bool AMediaFormat_getFloat(AMediaFormat *format, const char *name, float *out) {
    if (!usable(format, name)) return false;
    const AMediaFormat::Entry *e = format->find(name, FormatType::kFloat);
    if (e == nullptr) return false;
    if (out != nullptr) *out = e->v.f;
    return true;
}

bool AMediaFormat_getDouble(AMediaFormat *format, const char *name, double *out) {
    if (!usable(format, name)) return false;
    const AMediaFormat::Entry *e = format->find(name, FormatType::kDouble);
    if (e == nullptr) return false;
    if (out != nullptr) *out = e->v.d;
    return true;
}

bool AMediaFormat_getSize(AMediaFormat *format, const char *name, size_t *out) {
    if (!usable(format, name)) return false;
    const AMediaFormat::Entry *e = format->find(name, FormatType::kSize);
    if (e == nullptr) return false;
    if (out != nullptr) *out = e->v.size;
    return true;
}

bool AMediaFormat_getRect(AMediaFormat *format, const char *name,
                          int32_t *left, int32_t *top, int32_t *right, int32_t *bottom) {
    if (!usable(format, name)) return false;
    const AMediaFormat::Entry *e = format->find(name, FormatType::kRect);
    if (e == nullptr) return false;
    if (left != nullptr) *left = e->v.rect[0];
    if (top != nullptr) *top = e->v.rect[1];
    if (right != nullptr) *right = e->v.rect[2];
    if (bottom != nullptr) *bottom = e->v.rect[3];
    return true;
}

bool AMediaFormat_getBuffer(AMediaFormat *format, const char *name, void **data, size_t *size) {
    if (!usable(format, name)) return false;
    AMediaFormat::Entry *e = format->find(name, FormatType::kBuffer);
    if (e == nullptr) return false;
    // An empty buffer still has an address, as the platform's does.
    static uint8_t empty;
    if (data != nullptr) *data = e->bytes.empty() ? &empty : e->bytes.data();
    if (size != nullptr) *size = e->bytes.size();
    return true;
}

bool AMediaFormat_getString(AMediaFormat *format, const char *name, const char **out) {
    if (!usable(format, name)) return false;
    const AMediaFormat::Entry *e = format->find(name, FormatType::kString);
    if (e == nullptr) return false;
    if (out != nullptr) *out = e->str.c_str();
    return true;
}

void AMediaFormat_setInt32(AMediaFormat *format, const char *name, int32_t value) {
    if (!usable(format, name)) return;
    format->number(name, FormatType::kInt32)->v.i32 = value;
}

void AMediaFormat_setInt64(AMediaFormat *format, const char *name, int64_t value) {
    if (!usable(format, name)) return;
    format->number(name, FormatType::kInt64)->v.i64 = value;
}

void AMediaFormat_setFloat(AMediaFormat *format, const char *name, float value) {
    if (!usable(format, name)) return;
    format->number(name, FormatType::kFloat)->v.f = value;
}

void AMediaFormat_setDouble(AMediaFormat *format, const char *name, double value) {
    if (!usable(format, name)) return;
    format->number(name, FormatType::kDouble)->v.d = value;
}

void AMediaFormat_setSize(AMediaFormat *format, const char *name, size_t value) {
    if (!usable(format, name)) return;
    format->number(name, FormatType::kSize)->v.size = value;
}

void AMediaFormat_setRect(AMediaFormat *format, const char *name,
                          int32_t left, int32_t top, int32_t right, int32_t bottom) {
    if (!usable(format, name)) return;
    AMediaFormat::Entry *e = format->number(name, FormatType::kRect);
    e->v.rect[0] = left;
    e->v.rect[1] = top;
    e->v.rect[2] = right;
    e->v.rect[3] = bottom;
}

void AMediaFormat_setString(AMediaFormat *format, const char *name, const char *value) {
    if (!usable(format, name)) return;
    if (value == nullptr) {
        ALOGE("setString(%s) with a null value ignored", name);
        return;
    }
    // Built before the old entry goes, so a value read from this very entry
    // is still intact while it is copied.
    auto e = format->make(name, FormatType::kString);
    e->str = value;
    format->put(std::move(e));
}

void AMediaFormat_setBuffer(AMediaFormat *format, const char *name, const void *data, size_t size) {
    if (!usable(format, name)) return;
    if (data == nullptr && size > 0) {
        ALOGE("setBuffer(%s) with null data of %zu bytes ignored", name, size);
        return;
    }
    auto e = format->make(name, FormatType::kBuffer);
    const uint8_t *bytes = static_cast<const uint8_t *>(data);
    if (size > 0) e->bytes.assign(bytes, bytes + size);
    format->put(std::move(e));
}

void AMediaFormat_clear(AMediaFormat *format) {
    if (format == nullptr) return;
    format->clear();
}

media_status_t AMediaFormat_copy(AMediaFormat *to, AMediaFormat *from) {
    if (to == nullptr || from == nullptr) return AMEDIA_ERROR_INVALID_PARAMETER;
    if (to == from) return AMEDIA_OK;
    std::vector<std::unique_ptr<AMediaFormat::Entry>> copies;
    copies.reserve(from->entries.size());
    for (const auto &e : from->entries) copies.push_back(std::make_unique<AMediaFormat::Entry>(*e));
    to->entries = std::move(copies);
    return AMEDIA_OK;
}

}  // extern "C"

namespace qmkvhost {

void formatEntries(AMediaFormat *format, std::vector<FormatEntry> *out) {
    out->clear();
    if (format == nullptr) return;
    for (const auto &e : format->entries) out->push_back({e->name.c_str(), e->type});
}

std::vector<FormatEntry> formatEntries(AMediaFormat *format) {
    std::vector<FormatEntry> out;
    formatEntries(format, &out);
    return out;
}

const char *formatTypeName(FormatType type) {
    switch (type) {
        case FormatType::kInt32: return "int32";
        case FormatType::kInt64: return "int64";
        case FormatType::kSize: return "size";
        case FormatType::kFloat: return "float";
        case FormatType::kDouble: return "double";
        case FormatType::kRect: return "rect";
        case FormatType::kString: return "string";
        case FormatType::kBuffer: return "buffer";
    }
    return "?";
}

}  // namespace qmkvhost
