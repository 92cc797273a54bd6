// Values of the vendor's extra format keys; see README.md.
#include "qextractorcmn/ExtMediaFormatDef.h"

const char *AMEDIAFORMAT_KEY_FOURCC = "fourcc";
const char *AMEDIAFORMAT_KEY_TRACK_FOURCC = "track-fourcc";
const char *AMEDIAFORMAT_KEY_ERROR_TYPE = "error-type";
const char *AMEDIAFORMAT_KEY_TRACK_STATUS = "track-status";
const char *AMEDIAFORMAT_KEY_ERROR_LOGGABLE = "error-loggable";
const char *AMEDIAFORMAT_KEY_TRACK_NAME = "track-name";
const char *AMEDIAFORMAT_KEY_IS_MP4_DP = "is-mp4-dp";
const char *AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL = "i-frame-avg-interval";
const char *AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING = "allow-frame-reordering";
const char *AMEDIAFORMAT_KEY_WRITER = "writer";
const char *AMEDIAFORMAT_KEY_CHAR_ENCODING_TYPES = "char-encoding-types";
