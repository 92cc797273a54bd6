// The device's decoders from its own codec list: the platform's
// media_codecs.xml format (the one MediaCodecList reads), with the files it
// includes.
#include <android/log.h>
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <string>
#include <vector>

#include <tinyxml2.h>

#include "qextractorcmn/qcmn_device_profile.h"

namespace qcmn {

namespace {

using tinyxml2::XMLElement;

const char kTag[] = "qextractorcmn";
// Real lists are tens of kilobytes over a handful of files; includes may
// form a cycle, which the depth bound ends.
constexpr size_t kMaxFileBytes = 1 << 20;
constexpr int kMaxIncludeDepth = 8;
constexpr int kMaxFiles = 64;
constexpr size_t kMaxDecoders = 1024;

// The media types each family is declared under.
const struct {
    const char *mime;
    VFamily family;
} kMimes[] = {
    {"video/avc", VFamily::kAvc},         {"video/hevc", VFamily::kHevc},
    {"video/mp4v-es", VFamily::kMpeg4},   {"video/3gpp", VFamily::kH263},
    {"video/mpeg2", VFamily::kMpeg2},     {"video/x-vnd.on2.vp8", VFamily::kVp8},
    {"video/x-vnd.on2.vp9", VFamily::kVp9}, {"video/av01", VFamily::kAv1},
    {"video/divx3", VFamily::kMsMpeg4v3}, {"video/divx311", VFamily::kMsMpeg4v3},
};

VFamily family_of_mime(const char *mime) {
    if (mime != nullptr)
        for (const auto &m : kMimes)
            if (strcasecmp(m.mime, mime) == 0) return m.family;
    return VFamily::kUnknown;
}

// What a codec entry, or one of its <Type> children, declares for a type.
struct Caps {
    bool secure = false;            // requires secure playback
    int32_t width = 0, height = 0;  // the size limit's maximum; 0 when not declared
};

void merge(Caps *into, const Caps &from) {
    into->secure = into->secure || from.secure;
    if (from.width != 0) {
        into->width = from.width;
        into->height = from.height;
    }
}

struct Decoder {
    std::string name;
    bool declared[kFamilyCount] = {};
    Caps caps[kFamilyCount];
};

// Decimal 1..kMaxDimension, up to `end`.
bool parse_dimension(const char *s, const char *end, int32_t *v) {
    if (s == end || end - s > 6) return false;
    int32_t x = 0;
    for (; s < end; ++s) {
        if (*s < '0' || *s > '9') return false;
        x = x * 10 + (*s - '0');
    }
    if (x < 1 || x > (int32_t)kMaxDimension) return false;
    *v = x;
    return true;
}

// "WxH".
bool parse_size(const char *s, Caps *c) {
    const char *x = strchr(s, 'x');
    return x != nullptr && parse_dimension(s, x, &c->width) && parse_dimension(x + 1, x + strlen(x), &c->height);
}

// The size limit (max="WxH", or range="WxH-WxH") and the secure-playback
// requirement among the children of `e`.
void read_caps(const XMLElement *e, Caps *c) {
    for (const XMLElement *k = e->FirstChildElement(); k != nullptr; k = k->NextSiblingElement()) {
        if (strcmp(k->Name(), "Limit") == 0 && k->Attribute("name", "size")) {
            const char *max = k->Attribute("max");
            const char *range = k->Attribute("range");
            if (max == nullptr && range != nullptr && strchr(range, '-') != nullptr) max = strchr(range, '-') + 1;
            Caps size;
            if (max != nullptr && parse_size(max, &size)) merge(c, size);
        } else if (strcmp(k->Name(), "Feature") == 0 && k->Attribute("name", "secure-playback") &&
                   k->BoolAttribute("required")) {
            c->secure = true;
        }
    }
}

bool ends_with(const char *s, const char *tail) {
    const size_t n = strlen(s), m = strlen(tail);
    return n >= m && strcmp(s + n - m, tail) == 0;
}

// An include names a file in the including file's folder.
bool is_file_name(const char *href) {
    if (href == nullptr || href[0] == '\0' || href[0] == '.') return false;
    for (const char *p = href; *p != '\0'; ++p)
        if (!isalnum((unsigned char)*p) && *p != '_' && *p != '-' && *p != '.') return false;
    return true;
}

std::string folder_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool load(const std::string &path, std::string *text, std::string *why) {
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        *why = strerror(errno);
        return false;
    }
    char chunk[16384];
    size_t got;
    while ((got = fread(chunk, 1, sizeof(chunk), f)) > 0 && text->size() + got <= kMaxFileBytes)
        text->append(chunk, got);
    const int error = ferror(f) ? errno : 0;
    fclose(f);
    if (error != 0) {
        *why = strerror(error);
        return false;
    }
    if (got > 0) {
        *why = "larger than 1 MiB";
        return false;
    }
    return true;
}

class CodecList {
public:
    explicit CodecList(const char *top) : mTop(top) {}

    // False, with the reason in *why, when a file is unreadable (the top
    // one) or malformed (any).
    bool read(const std::string &path, int depth, std::string *why);
    void fill(DeviceProfile *p) const;

private:
    bool walk(const XMLElement *parent, const std::string &folder, int depth, bool decoders, std::string *why);
    void add(const XMLElement *codec);
    void apply(Decoder *d, const char *mime, const Caps &caps);

    const char *mTop;
    std::vector<Decoder> mDecoders;
    int mFiles = 0;
};

bool CodecList::read(const std::string &path, int depth, std::string *why) {
    if (depth > kMaxIncludeDepth || ++mFiles > kMaxFiles) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "codec list %s: more than %d files or %d levels of includes, %s skipped",
                            mTop, kMaxFiles, kMaxIncludeDepth, path.c_str());
        return true;
    }
    std::string text, cause;
    if (!load(path, &text, &cause)) {
        if (depth == 0) {
            *why = "cannot read it: " + cause;
            return false;
        }
        // A list pulled from a device often comes without the files it includes.
        __android_log_print(ANDROID_LOG_WARN, kTag, "codec list %s: cannot read the included %s (%s), skipped", mTop,
                            path.c_str(), cause.c_str());
        return true;
    }
    tinyxml2::XMLDocument doc;
    if (doc.Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS) {
        *why = path + " line " + std::to_string(doc.ErrorLineNum()) + ": " + doc.ErrorName();
        return false;
    }
    const XMLElement *root = doc.RootElement();
    const char *name = root != nullptr ? root->Name() : "";
    if (strcmp(name, "MediaCodecs") != 0 && (depth == 0 || strcmp(name, "Included") != 0)) {
        *why = path + " is not a codec list (root element <" + name + ">)";
        return false;
    }
    return walk(root, folder_of(path), depth, false, why);
}

bool CodecList::walk(const XMLElement *parent, const std::string &folder, int depth, bool decoders,
                     std::string *why) {
    for (const XMLElement *e = parent->FirstChildElement(); e != nullptr; e = e->NextSiblingElement()) {
        const char *name = e->Name();
        if (strcmp(name, "Include") == 0) {
            const char *href = e->Attribute("href");
            if (!is_file_name(href)) {
                __android_log_print(ANDROID_LOG_WARN, kTag, "codec list %s: include \"%s\" is no file name, skipped",
                                    mTop, href != nullptr ? href : "");
            } else if (!read(folder + "/" + href, depth + 1, why)) {
                return false;
            }
        } else if (strcmp(name, "Decoders") == 0 || strcmp(name, "Encoders") == 0) {
            // Encoders may include files that declare decoders too.
            if (!walk(e, folder, depth, strcmp(name, "Decoders") == 0, why)) return false;
        } else if (decoders && strcmp(name, "MediaCodec") == 0) {
            add(e);
        }
    }
    return true;
}

void CodecList::add(const XMLElement *codec) {
    const char *name = codec->Attribute("name");
    if (name == nullptr) return;
    Decoder *d = nullptr;
    for (Decoder &x : mDecoders)
        if (x.name == name) d = &x;
    if (d == nullptr) {
        // update="true" amends a codec declared before; there is none.
        if (codec->BoolAttribute("update")) return;
        if (mDecoders.size() == kMaxDecoders) return;
        mDecoders.emplace_back();
        d = &mDecoders.back();
        d->name = name;
    }
    Caps common;
    read_caps(codec, &common);
    common.secure = common.secure || ends_with(name, ".secure");
    bool typed = false;
    if (const char *type = codec->Attribute("type")) {
        apply(d, type, common);
        typed = true;
    }
    for (const XMLElement *t = codec->FirstChildElement("Type"); t != nullptr; t = t->NextSiblingElement("Type")) {
        Caps caps = common;
        read_caps(t, &caps);
        apply(d, t->Attribute("name"), caps);
        typed = true;
    }
    // An entry that names no type amends every type the codec has.
    if (!typed)
        for (int f = 0; f < kFamilyCount; ++f)
            if (d->declared[f]) merge(&d->caps[f], common);
}

void CodecList::apply(Decoder *d, const char *mime, const Caps &caps) {
    const VFamily f = family_of_mime(mime);
    if (f == VFamily::kUnknown) return;
    d->declared[(int)f] = true;
    merge(&d->caps[(int)f], caps);
}

void CodecList::fill(DeviceProfile *p) const {
    memset(p, 0, sizeof(*p));
    for (int f = 0; f < kFamilyCount; ++f) {
        int64_t best = 0;
        for (const Decoder &d : mDecoders) {
            const Caps &c = d.caps[f];
            if (!d.declared[f] || c.secure) continue;
            const int32_t w = c.width != 0 ? c.width : kDefaultLimits.landscape_width;
            const int32_t h = c.width != 0 ? c.height : kDefaultLimits.landscape_height;
            if ((int64_t)w * h > best) {
                best = (int64_t)w * h;
                p->limits[f] = {w, h, h, w};
            }
        }
        p->supported[f] = best > 0;
    }
}

}  // namespace

bool read_codec_list(const char *path, DeviceProfile *p, std::string *why) {
    CodecList list(path);
    if (!list.read(path, 0, why)) return false;
    list.fill(p);
    return true;
}

}  // namespace qcmn
