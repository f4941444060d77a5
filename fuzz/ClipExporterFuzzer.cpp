// A damaged segment file: the export joins it (twice, the first one cut half a second in) into a
// clip or says why not, and either way leaves the destination folder with the clip alone or with
// nothing, no temporary file behind. A clip it calls complete is of a size in proportion to its
// input, and opens and reads to its end.
#include "FuzzSupport.h"
#include "media/FFmpegHandles.h"
#include "recorder/ClipExporter.h"

#include <QDir>
#include <QFileInfo>

#include <cstddef>
#include <cstdint>

extern "C" {
#include <libavutil/log.h>
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    av_log_set_level(AV_LOG_QUIET);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QDir scratch(FuzzSupport::scratch().path());
    const QString segment = scratch.filePath(QStringLiteral("seg-00000000.mp4"));
    FuzzSupport::writeFile(segment, bytes);
    QDir clips(scratch.filePath(QStringLiteral("clips")));
    clips.removeRecursively();

    const QString destination = clips.filePath(QStringLiteral("clip.mp4"));
    const std::vector<Segment> segments {
        { segment, MediaTime(0, 600), MediaTime(900, 600) },
        { segment, MediaTime(900, 600), MediaTime(1800, 600) },
    };
    const ClipExporter::Result result = ClipExporter::exportConcatenated(segments, MediaTime(300, 600), destination);

    const QStringList left = clips.entryList(QDir::Files | QDir::Hidden | QDir::System);
    if (!result.completed) {
        FUZZ_CHECK(!result.errorText.isEmpty(), QByteArray("a failed export without a reason"));
        FUZZ_CHECK(left.isEmpty(), left.join(u' ').toUtf8());
        return 0;
    }
    FUZZ_CHECK(left == QStringList { QStringLiteral("clip.mp4") }, left.join(u' ').toUtf8());
    // The clip is its two pieces, an index and the room reserved for it: never many times its input.
    const qint64 clipSize = QFileInfo(destination).size();
    FUZZ_CHECK(clipSize <= 256 * 1024 + 200 * qint64(size), QByteArray::number(clipSize));
    InputFormatPtr clip = openInput(destination);
    FUZZ_CHECK(clip != nullptr, QByteArray("the clip does not open"));
    PacketPtr packet(av_packet_alloc());
    while (av_read_frame(clip.get(), packet.get()) >= 0)
        av_packet_unref(packet.get());
    return 0;
}
