#pragma once

#include "core/MediaTime.h"
#include "recorder/Segment.h"

#include <QString>

#include <vector>

// Joins finished segment files into one MP4 clip without re-encoding: packets are copied, never
// decoded. The first segment is cut at trimFromPTS through an MP4 edit list (the copy starts at
// the key frame before the cut and the edit hides the pre-roll); a first segment that ends before
// the cut is left out. Later segments follow without gaps, each advancing the clip by the length
// of its picture (which lasts until the segment closed). A segment's sound may reach a little past
// its picture, up to where the next segment's sound begins; where the two overlap, the next one
// gives way. The audio track appears from the first segment that has audio. The clip is written with its index at the
// front, under a temporary name in the destination folder, and moved into place only when it is complete. It never
// replaces a file: when the name is taken, the clip is called "name (2).mp4", "name (3).mp4"...
//
// Blocking; runs on any thread but the recorder's queue (it reads only what it is given).
class ClipExporter {
public:
    struct Result {
        bool completed = false;
        QString errorText; // for the user, when not completed
        QString path; // where the clip went, when completed

        static Result failure(const QString& text) { return { false, text, {} }; }
        static Result success(const QString& path) { return { true, {}, path }; }
    };

    // `path`, or the first of "stem (2).ext", "stem (3).ext"... that names no file.
    static QString freeName(const QString& path);

    static Result exportConcatenated(
        const std::vector<Segment>& segments, const MediaTime& trimFromPTS, const QString& destination);
};
