#include "core_view.h"

#include <stdio.h>
#include <string.h>

#include <string>

#include "dropped_tracks.h"
#include "format_json.h"

using nlohmann::ordered_json;

namespace qmkvprobe {

namespace {

std::string hex32(uint32_t v) {
    char buf[16];
    snprintf(buf, sizeof(buf), "0x%08x", v);
    return buf;
}

// A four-character code reads as text when all four bytes are printable.
ordered_json fourcc(uint32_t code) {
    std::string s;
    for (int i = 0; i < 4; ++i) {
        const char c = (char)(code >> (8 * i));
        if (c < 0x20 || c > 0x7E) return nullptr;
        s += c;
    }
    return s;
}

std::string text(const uint8_t *data, uint32_t length) {
    return std::string(reinterpret_cast<const char *>(data), length);
}

ordered_json colourView(const qmkvd_colour *c) {
    ordered_json j;
    const struct {
        const char *name;
        uint64_t value;
    } values[] = {{"matrix_coefficients", c->matrix_coefficients},
                  {"bits_per_channel", c->bits_per_channel},
                  {"chroma_subsampling_horz", c->chroma_subsampling_horz},
                  {"chroma_subsampling_vert", c->chroma_subsampling_vert},
                  {"cb_subsampling_horz", c->cb_subsampling_horz},
                  {"cb_subsampling_vert", c->cb_subsampling_vert},
                  {"chroma_siting_horz", c->chroma_siting_horz},
                  {"chroma_siting_vert", c->chroma_siting_vert},
                  {"range", c->range},
                  {"transfer_characteristics", c->transfer_characteristics},
                  {"primaries", c->primaries},
                  {"max_cll", c->max_cll},
                  {"max_fall", c->max_fall}};
    for (const auto &v : values)
        if (v.value != QMKVD_COLOUR_ABSENT) j[v.name] = v.value;
    if (const qmkvd_mastering *m = c->mastering) {
        ordered_json mj;
        const struct {
            const char *name;
            const qmkvd_chromaticity *xy;
        } pairs[] = {{"primary_r", m->primary_r},
                     {"primary_g", m->primary_g},
                     {"primary_b", m->primary_b},
                     {"white_point", m->white_point}};
        for (const auto &p : pairs)
            if (p.xy != nullptr) mj[p.name] = {p.xy->x, p.xy->y};
        float lum;
        memcpy(&lum, &m->luminance_max, sizeof(lum));
        mj["luminance_max"] = lum;
        memcpy(&lum, &m->luminance_min, sizeof(lum));
        mj["luminance_min"] = lum;
        j["mastering"] = mj;
    }
    return j;
}

ordered_json trackView(const qmkvd *inst, const qmkvd_format &format, int i) {
    const qmkvds &s = inst->streams[i];
    const qmkvd_track &t = s.track;
    ordered_json j;
    j["index"] = i;
    j["number"] = t.track_number;
    j["uid"] = t.track_uid;
    j["track_type"] = t.track_type;
    j["stream_type"] = format.track_type[i];
    j["codec_id"] = t.codec_id;
    j["codec_type"] = hex32(format.track_codec_types[i]);
    j["codec_fourcc"] = fourcc(format.track_codec_types[i]);
    j["language"] = t.language;
    j["name"] = t.name;
    j["codec_name"] = t.codec_name;
    j["codec_private_size"] = t.codec_private_size;
    j["flag_enabled"] = t.flag_enabled;
    j["flag_default"] = t.flag_default;
    j["flag_forced"] = t.flag_forced;
    j["default_duration_ns"] = t.default_duration;
    j["default_duration_100ns"] = s.default_duration_100ns;
    j["track_timecode_scale"] = t.track_timecode_scale;
    j["codec_delay"] = t.codec_delay;
    j["seek_pre_roll"] = t.seek_pre_roll;
    j["nal_length_size"] = s.nal_length_size;
    if (t.track_type == QMKVD_TRACK_VIDEO) {
        const qmkvd_video &v = t.video;
        j["video"] = {{"pixel_width", v.pixel_width},        {"pixel_height", v.pixel_height},
                      {"display_width", v.display_width},    {"display_height", v.display_height},
                      {"display_unit", v.display_unit},      {"pixel_crop_top", v.pixel_crop_top},
                      {"pixel_crop_bottom", v.pixel_crop_bottom}, {"pixel_crop_left", v.pixel_crop_left},
                      {"pixel_crop_right", v.pixel_crop_right}};
        if (v.colour != nullptr) j["colour"] = colourView(v.colour);
    }
    if (t.track_type == QMKVD_TRACK_AUDIO) {
        const qmkvd_audio &a = t.audio;
        j["audio"] = {{"sampling_frequency", a.sampling_frequency},
                      {"output_sampling_frequency", a.output_sampling_frequency},
                      {"channels", a.channels},
                      {"bit_depth", a.bit_depth}};
    }
    const qmkvd_content_encodings &ce = t.content_encodings;
    if (ce.encoding_count > 0) {
        j["content_encoding"] = {{"count", ce.encoding_count},
                                 {"order", ce.encoding.encoding_order},
                                 {"type", ce.encoding.encoding_type},
                                 {"comp_algo", ce.encoding.compression.comp_algo},
                                 {"comp_settings_size", ce.encoding.compression.comp_settings_size}};
    }
    return j;
}

ordered_json metadataView(const qmkvd_format &format) {
    static const char *const kNames[QMKVD_METADATA_ITEMS] = {"title",    "artist",   "album",  "genre", "album_artist",
                                                             "author",   "composer", "writer", "date"};
    ordered_json j = ordered_json::object();
    if (format.meta == nullptr) return j;
    for (int i = 0; i < QMKVD_METADATA_ITEMS; ++i) {
        const qmkvd_metadata_item &item = format.meta->items[i];
        if (item.data != nullptr) j[kNames[i]] = text(item.data, item.length);
    }
    if (format.meta->year >= 0) j["year"] = format.meta->year;
    return j;
}

void printFlat(const std::string &prefix, const ordered_json &v) {
    if (v.is_object()) {
        for (auto it = v.begin(); it != v.end(); ++it)
            printFlat(prefix.empty() ? it.key() : prefix + "." + it.key(), it.value());
    } else if (v.is_array() && !v.empty() && v[0].is_structured()) {
        for (size_t i = 0; i < v.size(); ++i) printFlat(prefix + "[" + std::to_string(i) + "]", v[i]);
    } else {
        printf("%s: %s\n", prefix.c_str(), v.is_string() ? v.get<std::string>().c_str() : v.dump().c_str());
    }
}

}  // namespace

ordered_json coreView(const qmkvd *inst, const qmkvd_format &format) {
    ordered_json file;
    file["error"] = 0;
    file["doc_type"] = inst->doc_type;
    file["track_count"] = format.track_count;
    file["video_count"] = format.video_count;
    file["audio_count"] = format.audio_count;
    file["subtitle_count"] = format.subtitle_count;
    file["duration_100ns"] = format.duration;
    // "info": the Info's Duration; "frames": none there, the end of the last
    // frame; "unknown": neither.
    file["duration_from"] = inst->duration_from_frames ? "frames" : inst->info.duration_ticks != 0 ? "info" : "unknown";
    file["seekable"] = format.seekable;
    file["timecode_scale"] = inst->info.timecode_scale;
    file["cue_count"] = inst->cues.cue_count;
    ordered_json index = ordered_json::array();
    for (int i = 0; i < format.index_count; ++i) {
        const qmkvd_index_entry &e = format.index_entries[i];
        index.push_back({{"kind", e.kind}, {"position", e.position}, {"size", e.size}});
    }
    file["index_entries"] = index;
    file["title"] = inst->info.title;
    file["muxing_app"] = inst->info.muxing_app;
    file["writing_app"] = inst->info.writing_app;
    file["date_utc"] = inst->info.date_utc;
    file["simple_tag_count"] = inst->tags.simple_tag_count;
    file["metadata"] = metadataView(format);

    ordered_json tracks = ordered_json::array();
    for (int i = 0; i < format.track_count; ++i) tracks.push_back(trackView(inst, format, i));
    return ordered_json{{"file", file}, {"tracks", tracks}, {"dropped", droppedJson(inst)}};
}

void printView(const ordered_json &view, bool json) {
    if (json) {
        printf("%s\n", jsonLine(view).c_str());
        return;
    }
    printFlat("", view);
}

}  // namespace qmkvprobe
