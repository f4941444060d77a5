#pragma once

#include "core/MediaTime.h"
#include "recorder/Segment.h"

#include <QString>

#include <vector>

// Joins finished segment files into one MP4 clip without re-encoding: packets are copied, never
// decoded. The first segment is cut at trimFromPTS through an MP4 edit list (the copy starts at
// the key frame before the cut and the edit hides the pre-roll); later segments follow without
// gaps, each advancing the clip by its file's duration; the audio track appears from the first
// segment that has audio. The clip is written with its index at the front, under a temporary name
// in the destination folder, and renamed into place only when it is complete.
//
// Blocking; runs on any thread but the recorder's queue (it reads only what it is given).
class ClipExporter {
public:
    struct Result {
        bool completed = false;
        QString errorText; // for the user, when not completed
    };

    static Result exportConcatenated(
        const std::vector<Segment>& segments, const MediaTime& trimFromPTS, const QString& destination);
};
