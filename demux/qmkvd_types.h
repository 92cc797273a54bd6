// Plain records of the demuxer core: the instance, its stream slots, track
// entries and the tables parsed from the Segment.
#ifndef QMKVD_TYPES_H_
#define QMKVD_TYPES_H_

#include <pthread.h>
#include <stdint.h>

#include "common/qcmn_mfal.h"

#define QMKVD_MAGIC 0x4D4B5644u   // "MKVD"
#define QMKVDS_MAGIC 0x4D4B4453u  // "MKDS"

#define QMKVD_MAX_TRACKS 128
#define QMKVD_MAX_INDEX_ENTRIES 16
#define QMKVD_STRING_SIZE 256
#define QMKVD_METADATA_ITEMS 9
#define QMKVD_STRING_UTF8 0x2BF  // metadata item type of a UTF-8 string

// Track types as written in TrackType and as reported per stream.
enum {
    QMKVD_TRACK_VIDEO = 1,
    QMKVD_TRACK_AUDIO = 2,
    QMKVD_TRACK_SUBTITLE = 0x11,
};

// Colour values the file did not give.
#define QMKVD_COLOUR_ABSENT 0x7FFFFFFFFFFFFFFFull

typedef struct qmkvd_chromaticity {
    float x;
    float y;
} qmkvd_chromaticity;

typedef struct qmkvd_mastering {
    uint64_t mastering_pos;
    int64_t mastering_size;
    qmkvd_chromaticity *primary_r;
    qmkvd_chromaticity *primary_g;
    qmkvd_chromaticity *primary_b;
    qmkvd_chromaticity *white_point;
    uint32_t luminance_max;  // raw bits of a float, 0 when absent
    uint32_t luminance_min;
} qmkvd_mastering;

typedef struct qmkvd_colour {
    int64_t colour_pos;
    int64_t colour_size;
    uint64_t matrix_coefficients;
    uint64_t bits_per_channel;
    uint64_t chroma_subsampling_horz;
    uint64_t chroma_subsampling_vert;
    uint64_t cb_subsampling_horz;
    uint64_t cb_subsampling_vert;
    uint64_t chroma_siting_horz;
    uint64_t chroma_siting_vert;
    uint64_t range;
    uint64_t transfer_characteristics;
    uint64_t primaries;
    uint64_t max_cll;
    uint64_t max_fall;
    qmkvd_mastering *mastering;
} qmkvd_colour;

typedef struct qmkvd_video {
    int64_t video_pos;
    uint32_t video_size;
    uint32_t pixel_width;
    uint32_t pixel_height;
    uint32_t pixel_crop_bottom;
    uint32_t pixel_crop_top;
    uint32_t pixel_crop_left;
    uint32_t pixel_crop_right;
    uint32_t display_width;
    uint32_t display_height;
    uint32_t display_unit;
    qmkvd_colour *colour;
} qmkvd_video;

typedef struct qmkvd_audio {
    int64_t audio_pos;
    uint32_t audio_size;
    uint32_t sampling_frequency;
    uint32_t output_sampling_frequency;
    uint32_t channels;
    uint32_t bit_depth;
} qmkvd_audio;

typedef struct qmkvd_compression {
    int64_t compression_pos;
    uint32_t compression_size;
    uint32_t comp_algo;
    uint8_t *comp_settings;
    uint32_t comp_settings_size;
} qmkvd_compression;

#define QMKVD_COMP_HEADER_STRIPPING 3

// Why a TrackEntry was dropped at open.
enum {
    QMKVD_DROP_DAMAGED = 0,
    QMKVD_DROP_COMPRESSION = 1,  // a ContentCompAlgo other than header stripping
    QMKVD_DROP_ENCRYPTION = 2,
};

typedef struct qmkvd_encoding {
    int64_t encoding_pos;
    uint32_t encoding_size;
    uint32_t encoding_order;
    uint32_t encoding_type;
    qmkvd_compression compression;
    int64_t encryption_pos;
    uint32_t encryption_size;
    uint8_t unsupported;  // QMKVD_DROP_COMPRESSION or QMKVD_DROP_ENCRYPTION when it cannot be undone
} qmkvd_encoding;

typedef struct qmkvd_content_encodings {
    int64_t content_encodings_pos;
    uint32_t content_encodings_size;
    qmkvd_encoding encoding;
    uint32_t encoding_count;
} qmkvd_content_encodings;

// One TrackEntry.
typedef struct qmkvd_track {
    int64_t entry_pos;
    uint32_t entry_size;
    uint32_t track_number;
    uint64_t track_uid;
    uint8_t track_type;
    uint8_t flag_enabled;
    uint8_t flag_default;
    uint8_t flag_forced;
    uint8_t flag_lacing;
    uint32_t min_cache;
    uint32_t max_cache;
    uint32_t default_duration;
    uint32_t track_timecode_scale;
    uint32_t max_block_addition_id;
    char name[QMKVD_STRING_SIZE];
    char language[QMKVD_STRING_SIZE];
    char codec_id[QMKVD_STRING_SIZE];
    uint8_t *codec_private;
    uint32_t codec_private_size;
    char codec_name[QMKVD_STRING_SIZE];
    uint32_t attachment_link;
    uint32_t track_overlay;
    uint64_t seek_pre_roll;
    uint64_t codec_delay;
    qmkvd_video video;
    qmkvd_audio audio;
    qmkvd_content_encodings content_encodings;
} qmkvd_track;

#define QMKVD_REASON_SIZE 64

// A TrackEntry the demuxer cannot carry: what it was and why it was dropped.
typedef struct qmkvd_dropped_track {
    uint32_t track_number;
    char codec_id[QMKVD_STRING_SIZE];
    char name[QMKVD_STRING_SIZE];
    char language[QMKVD_STRING_SIZE];
    char reason[QMKVD_REASON_SIZE];  // e.g. "zlib compression is not supported"
} qmkvd_dropped_track;

typedef struct qmkvd_cue_point {
    int64_t cue_point_pos;
    uint32_t cue_point_size;
    uint64_t cue_time;
    int64_t track_positions_pos;
    uint32_t track_positions_size;
    uint32_t cue_track;
    uint64_t cue_cluster_position;
    uint64_t cue_block_number;
    uint32_t track_positions_count;
} qmkvd_cue_point;

typedef struct qmkvd_cue_table {
    int64_t cues_start;
    int64_t cues_pos;
    uint32_t cues_size;
    qmkvd_cue_point *cue_points;
    uint32_t cue_count;
    uint32_t cue_capacity;
} qmkvd_cue_table;

// A track's cues: (time in ticks, cluster position relative to the Segment).
typedef struct qmkvd_cue_entry {
    uint64_t time;
    int64_t cluster_position;
} qmkvd_cue_entry;

typedef struct qmkvd_cue_list {
    uint32_t count;
    uint32_t capacity;
    qmkvd_cue_entry *entries;
} qmkvd_cue_list;

typedef struct qmkvd_simple_tag {
    int64_t simple_tag_pos;
    char tag_name[256];
    char tag_language[256];
    char tag_string[1024];
    uint32_t simple_tag_size;
} qmkvd_simple_tag;

typedef struct qmkvd_tags {
    int64_t tags_start;
    int64_t tags_pos;
    uint64_t tags_size;
    int64_t tag_pos;
    uint64_t tag_size;
    int64_t targets_pos;
    uint64_t targets_size;
    qmkvd_simple_tag *simple_tags;
    uint32_t simple_tag_count;
    uint32_t simple_tag_capacity;
} qmkvd_tags;

typedef struct qmkvd_segment_info {
    int64_t info_start;
    int64_t info_pos;
    uint64_t info_size;
    char segment_filename[QMKVD_STRING_SIZE];
    uint8_t segment_uid[16];
    char prev_filename[QMKVD_STRING_SIZE];
    uint8_t prev_uid[16];
    char next_filename[QMKVD_STRING_SIZE];
    uint8_t next_uid[256];
    uint32_t timecode_scale;
    uint64_t duration_ticks;
    double duration;
    char title[QMKVD_STRING_SIZE];
    char muxing_app[QMKVD_STRING_SIZE];
    char writing_app[QMKVD_STRING_SIZE];
    int64_t date_utc;
} qmkvd_segment_info;

// A top-level element whose contents are only located, not stored.
typedef struct qmkvd_element {
    int64_t start;
    int64_t pos;
    uint64_t size;
} qmkvd_element;

typedef struct qmkvd_metadata_item {
    uint32_t type;
    uint32_t length;
    uint8_t *data;  // `length` bytes, not NUL-terminated
} qmkvd_metadata_item;

// The file's descriptive metadata: text items, then numbers (-1 when the
// file does not give them).
typedef struct qmkvd_metadata {
    qmkvd_metadata_item items[QMKVD_METADATA_ITEMS];
    int32_t year;
    int32_t track_number;
    int32_t track_total;
    int32_t disc_number;
    int32_t compilation;
} qmkvd_metadata;

enum {
    QMKVD_META_TITLE = 0,
    QMKVD_META_ARTIST = 1,
    QMKVD_META_ALBUM = 2,
    QMKVD_META_GENRE = 3,
    QMKVD_META_ALBUM_ARTIST = 4,  // no Matroska tag fills these two
    QMKVD_META_AUTHOR = 5,
    QMKVD_META_COMPOSER = 6,
    QMKVD_META_WRITER = 7,
    QMKVD_META_DATE = 8,
};

enum {
    QMKVD_INDEX_FIRST_CLUSTER = 0,
    QMKVD_INDEX_CUES = 2,
};

typedef struct qmkvd_index_entry {
    uint32_t kind;
    uint64_t position;
    uint64_t size;
} qmkvd_index_entry;

// What qmkvd_create tells its caller about the file.
typedef struct qmkvd_format {
    int32_t track_count;
    int32_t video_count;
    int32_t audio_count;
    int32_t subtitle_count;
    int32_t track_type[QMKVD_MAX_TRACKS];
    uint32_t track_codec_types[QMKVD_MAX_TRACKS];
    int64_t duration;  // 100 ns
    uint32_t seekable;
    int32_t index_count;
    qmkvd_index_entry index_entries[QMKVD_MAX_INDEX_ENTRIES];
    qmkvd_metadata *meta;  // null when the file has none
} qmkvd_format;

// Where a stream stands in the Clusters.
typedef struct qmkvd_cluster {
    uint64_t reserved;
    int64_t parse_start;  // data position of the current Cluster
    uint64_t parse_size;
    int64_t cluster_pos;  // the first Cluster
    uint64_t cluster_size;
    int64_t next_block_pos;  // ID position of the next block element
    uint32_t first_group_size;
    uint32_t first_simple_size;
    uint64_t timecode;  // ticks
    uint64_t position;
    uint64_t prev_size;
} qmkvd_cluster;

// The block at hand.
typedef struct qmkvd_block_info {
    uint32_t block_duration;
    int64_t data_pos;  // first byte of the block header
    uint64_t data_size;
    uint32_t track_number;
    int16_t rel_timecode;
    uint8_t flags;
} qmkvd_block_info;

#define QMKVD_MAX_LACES 256

// One Cluster of the file, for seeking without cues.
typedef struct qmkvd_cluster_node {
    struct qmkvd_cluster_node *prev;
    struct qmkvd_cluster_node *next;
    int64_t position;  // data position
    int64_t time;      // ns: Cluster Timecode + its first block's relative timecode
    uint32_t size;
} qmkvd_cluster_node;

struct qmkvd;
struct qmkvds;

// Small reads of the data source a file keeps for its streams' fills.
#define QMKVD_RECENT_READS 8
#define QMKVD_RECENT_READ_SIZE 4096

// Bytes of the file held in memory for one stream's reads (qmkvd_window.h).
typedef struct qmkvd_window {
    int64_t start;       // file position of bytes[0]
    uint32_t len;        // bytes held
    uint32_t cap;        // bytes the buffer can hold
    uint32_t next_fill;  // size of the next fill
    uint8_t *bytes;
    // The file whose other streams' windows a fill draws on before it reads
    // the data source; null for a window on its own.
    struct qmkvd *file;
} qmkvd_window;

typedef int32_t (*qmkvds_get_frm_fn)(struct qmkvds *stream, uint8_t *buf, uint32_t buf_size, uint32_t *size,
                                     int64_t *pts, int64_t *end, uint32_t *key);
typedef int64_t (*qmkvds_get_time_fn)(struct qmkvds *stream, uint64_t cluster_time, int16_t relative_time);

// A stream slot: one kept track and, once opened, its reading state.
typedef struct qmkvds {
    int32_t index;
    uint32_t magic;
    struct qmkvds *self;
    struct qmkvd *demux;
    qmkvd_track track;
    uint32_t timecode_scale;
    int64_t default_duration_100ns;
    int64_t base_time;
    uint8_t stream_type;
    QCMN_MFAL_FP *file;
    uint32_t comp_algo;
    uint8_t *comp_settings;
    uint32_t comp_settings_size;
    uint32_t lace_sizes[QMKVD_MAX_LACES];
    int32_t lace_last;  // frames in the current block minus one
    int32_t lace_left;  // the next frame is lace_last - lace_left; negative: block used up
    QCMN_MFAL *mfal;
    qmkvd_cluster cluster;
    qmkvd_block_info block;
    uint32_t codec_type;
    uint32_t opened;
    uint32_t skip_to_time;  // skip blocks until one at base_time
    uint32_t after_seek;    // the next video frames are tested for a key frame
    int64_t last_block_time;
    int64_t block_pts;
    int64_t block_end;
    int64_t lace_duration;
    uint32_t peeked_size;  // a size query holds the current block
    uint8_t peeked;        // ... also when its payload is empty
    uint8_t other_track;   // the block at hand belongs to another track (subtitle gap)
    int32_t prev_lace_count;
    uint32_t payload_size;  // bytes of all frames of the current block
    int64_t payload_pos;    // file position of its first frame
    uint32_t nal_length_size;
    uint32_t dts_counter;
    uint8_t ended;  // a seek past the last cue: end of stream until the next seek
    qmkvds_get_time_fn get_time;
    qmkvds_get_frm_fn get_frm;
    // Seek state, built on first need and kept until close.
    qmkvd_cue_list stream_cues;  // this track's own cues
    uint32_t cues_loaded;
    uint32_t use_instance_cues;  // the track has no cues of its own
    qmkvd_window window;  // read-ahead of the frame path, allocated on open
} qmkvds;

// A search for the next Cluster that found none: from the same Cluster
// state it ends the same way for every stream of the file.
typedef struct qmkvd_fruitless_search {
    uint8_t valid;
    qmkvd_cluster from;
    qmkvd_cluster to;
    int64_t end;  // where the search stopped
} qmkvd_fruitless_search;

// One open file.
typedef struct qmkvd {
    uint32_t magic;
    struct qmkvd *self;
    QCMN_MFAL mfal;

    int64_t ebml_pos;
    uint64_t ebml_size;
    uint32_t ebml_version;
    uint32_t ebml_read_version;
    uint32_t ebml_max_id_length;
    uint32_t ebml_max_size_length;
    uint32_t doc_type_version;
    uint32_t doc_type_read_version;
    char doc_type[12];

    int64_t segment_pos;
    uint64_t segment_size;
    qmkvd_segment_info info;

    int64_t first_cluster_start;
    int64_t first_cluster_pos;
    uint64_t first_cluster_size;

    qmkvd_cue_table cues;
    qmkvd_element attachments;
    qmkvd_element chapters;
    qmkvd_tags tags;
    qmkvd_element seekhead;
    qmkvd_element tracks;

    // TrackEntries are parsed here first; the good ones become stream slots.
    qmkvd_track track_scratch[QMKVD_MAX_TRACKS];
    uint32_t track_scratch_count;

    int32_t stream_count;
    qmkvds streams[QMKVD_MAX_TRACKS];

    uint8_t found_info;
    uint8_t found_cluster;
    uint8_t found_tracks;
    uint8_t found_cues;
    uint8_t found_attachments;
    uint8_t found_chapters;
    uint8_t found_tags;
    uint8_t found_seekhead;

    qmkvd_metadata meta;
    uint32_t release_year;
    uint8_t has_metadata;

    int64_t file_size;  // 0 when the source cannot tell
    // The Info had no Duration: info.duration is the end of the last frame.
    uint8_t duration_from_frames;
    // Cue cluster positions count from here: the first SeekHead's start,
    // corrected on the first seek when the cues show otherwise.
    int64_t cue_base;
    int32_t last_cue_index;  // the cue the last cue seek of any stream used
    // Every Cluster with its start time, for seeking without cues: built by
    // the first stream that needs it and shared by all (under seek_lock).
    qmkvd_cluster_node *cluster_list;
    // Streams of one file are read from several threads at once; seeks
    // share the cue state above (and may condemn the cue table), so they
    // take turns on it.
    pthread_mutex_t seek_lock;
    // Guards the streams' windows while one is filled (from another's bytes
    // or from the data source), set up or released; a stream reads what its
    // own window holds without it, as only its own fills change that.
    pthread_mutex_t window_lock;
    // The last small reads of the data source by any stream's fill (under
    // window_lock): a stream that runs ahead of another fills its window at
    // the same short gaps between large frames that the other reaches later.
    qmkvd_window recent[QMKVD_RECENT_READS];
    // The last fruitless search for a next Cluster (under window_lock): each
    // stream that reads to the end, and each seek near the end read on,
    // would walk the same tail again.
    qmkvd_fruitless_search fruitless;
    uint8_t recent_bytes[QMKVD_RECENT_READS][QMKVD_RECENT_READ_SIZE];
    uint32_t recent_next;
    // TrackEntries dropped at open, for tools that explain a missing track;
    // the first QMKVD_MAX_TRACKS of them.
    qmkvd_dropped_track dropped[QMKVD_MAX_TRACKS];
    uint32_t dropped_count;
} qmkvd;

#endif  // QMKVD_TYPES_H_
