#pragma once

#include <QString>

#include <vector>

// Everything a test wants to know about a written MP4, found by demuxing and decoding all of it
// with libavformat/libavcodec as a player would (edit lists applied, hidden frames not shown).
struct ClipProbe {
    struct Frame {
        double seconds = 0; // presentation time in the file
        int index = -1; // the index painted into the picture (IndexedFrames), -1 unreadable
        bool key = false;
        int cornerLuma = 0; // mean luma of the top-left 64x64 pixels
        // Mean luma of each of 16x9 cells over the whole picture, sampled every 8th pixel: enough
        // to tell a new picture from the same one encoded again.
        std::vector<uint8_t> cells;
    };
    // Whether two frames show different pictures: some cell's luma moved by more than coding noise.
    static bool differ(const Frame& a, const Frame& b);

    bool opened = false;
    QString container; // the demuxer's name, "mov,mp4,m4a,3gp,3g2,mj2" for MP4
    QString videoCodec;
    QString audioCodec;
    int width = 0;
    int height = 0;
    int audioSampleRate = 0;
    int audioChannels = 0;
    double audioBitRate = 0;
    bool faststart = false; // the index (moov) comes before the media data (mdat)
    std::vector<Frame> frames;
    int videoPackets = 0; // in the file, including any hidden by an edit list
    int reorderedPackets = 0; // video packets decoded before they are shown (B-frames)
    double audioStart = -1; // seconds of the first decoded audio sample shown, -1 when none
    double audioSeconds = 0; // decoded audio, in seconds
    std::vector<float> audio; // the decoded samples of the first channel, from audioStart on
    double videoEnd = 0; // where the last frame's display ends: its time plus its duration
    int decodeErrors = 0;

    static ClipProbe read(const QString& path);
    double duration() const;
    // The longest run of samples quieter than `level`, in seconds (a hole in a tone).
    double longestQuietStretch(float level) const;
    // The frame on show at `seconds`: the last one that starts at or before it; null if none.
    const Frame* frameAt(double seconds) const;
};
