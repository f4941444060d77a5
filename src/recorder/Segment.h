#pragma once

#include "core/MediaTime.h"

#include <QString>

// One finished segment file of the ring.
struct Segment {
    QString url; // the finished file
    MediaTime startPTS; // time of its first frame
    MediaTime endPTS; // time of the frame that ended it: the first frame of the next segment
};
