// Axis ticks and labels for the picture of a file: times and byte counts.
#ifndef QMKVPROBE_MAP_SCALE_H_
#define QMKVPROBE_MAP_SCALE_H_

#include <stdint.h>

#include <string>

namespace qmkvprobe {

// The smallest round time step (100 ns) that puts at most `most` ticks on
// `span`: 1-2-5 under a second, then 1, 2, 5, 10, 15, 30 s and min, then hours.
int64_t timeStep(int64_t span, int most);
// A tick's time as the step needs it: "1.25 s", "45 s", "12:30", "1:05:00".
std::string timeLabel(int64_t t, int64_t step);
// A duration in full: "1:05:00.250", or "12.480 s" under a minute.
std::string durationText(int64_t t);

// The smallest 1-2-5 byte step (in B, KiB, MiB, GiB) for at most `most`
// ticks on `span` bytes, and a tick's label in the step's unit.
int64_t byteStep(int64_t span, int most);
std::string byteLabel(int64_t bytes, int64_t step);
// A size for people: "812 B", "48.3 KiB", "56.1 MiB".
std::string sizeText(int64_t bytes);

}  // namespace qmkvprobe

#endif  // QMKVPROBE_MAP_SCALE_H_
