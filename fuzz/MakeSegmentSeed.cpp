// Writes a seed of the export fuzzer: one real, small segment as the ring writes it (HEVC with a
// key frame every second, AAC mono unless "video-only" is given), 1.5 s of 128x72 at 10 frames a
// second. Run once; its output is committed under corpus/fuzz_export/.
#include "../tests/recorder/IndexedFrames.h"
#include "recorder/SegmentWriter.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const bool withAudio = argc == 2;
    if (argc != 2 && !(argc == 3 && qstrcmp(argv[2], "video-only") == 0)) {
        std::fprintf(stderr, "usage: %s OUTPUT.mp4 [video-only]\n", argv[0]);
        return 2;
    }
    SegmentWriter writer(QString::fromLocal8Bit(argv[1]));
    writer.setExpectsMediaDataInRealTime(false);
    SegmentWriter::VideoSettings video;
    video.width = 128;
    video.height = 72;
    video.averageBitRate = 100'000;
    video.expectedFPS = 10;
    if (!writer.addVideoInput(video) || (withAudio && !writer.addAudioInput()) || !writer.startWriting()) {
        std::fprintf(stderr, "%s\n", qPrintable(writer.error()));
        return 1;
    }
    writer.startSession(MediaTime(0, 600));
    int64_t audioFrames = 0;
    for (int i = 0; i < 15; ++i) {
        const MediaTime at(i * 60, 600);
        // Not real time: asking for readiness waits for room, so that no sample is dropped.
        if (!writer.isReadyForMoreMediaData() || !writer.append(IndexedFrames::frame(i, video.width, video.height, at)))
            return 1;
        while (withAudio && MediaTime(audioFrames, 44100) <= at) {
            const AudioBuffer tone = IndexedFrames::tone(
                AudioBuffer::SampleFormat::Float32, 44100, 1, 1024, MediaTime(audioFrames, 44100), 440, 0.3);
            if (!writer.isReadyForMoreAudioData() || !writer.appendAudio(tone)) return 1;
            audioFrames += 1024;
        }
    }
    writer.markAsFinished();
    if (writer.finishWriting() != SegmentWriter::Status::completed) {
        std::fprintf(stderr, "%s\n", qPrintable(writer.error()));
        return 1;
    }
    return 0;
}
