#include "recorder/ClipExporter.h"

#include "core/Log.h"
#include "media/FFmpegHandles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <optional>
#include <unistd.h>

namespace {

// One segment as it goes into the clip: which part of the file, and where it lands.
struct Piece {
    InputFormatPtr input;
    int videoIndex = -1;
    int audioIndex = -1;
    MediaTime rangeStart; // in the file's own time
    MediaTime rangeEnd; // in the file's own time: where the picture ends
    MediaTime insertAt; // in the clip's time
};

MediaTime streamDuration(const AVStream* st)
{
    if (st->duration == AV_NOPTS_VALUE || st->duration <= 0) return MediaTime::invalid();
    return MediaTime(st->duration * st->time_base.num, st->time_base.den);
}

// How long a segment lasts in the clip: from its start, the file's time zero, to the end of its
// picture's track, which lasts until the segment closed. The track itself may start later than
// the segment (its opening picture was refused by a busy encoder): the track's duration alone
// would end the segment early, and the next one would overlap it. Its sound may end a little
// later (the last audio packet is whole); the next segment's sound takes over from there.
MediaTime segmentDuration(const AVFormatContext* f, int videoIndex)
{
    const AVStream* video = f->streams[videoIndex];
    MediaTime d = streamDuration(video);
    if (!d.isNumeric() && f->duration != AV_NOPTS_VALUE && f->duration > 0) d = MediaTime(f->duration, AV_TIME_BASE);
    if (d.isNumeric() && video->start_time != AV_NOPTS_VALUE && video->start_time > 0)
        d = d + MediaTime(video->start_time * video->time_base.num, video->time_base.den);
    return d;
}

// Moves `from` to `to`, or to the first free "(n)" name beside it, never over an existing file.
// The path it went to, or none with *error.
std::optional<QString> moveWithoutReplacing(const QString& from, const QString& to, QString* error)
{
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const QString target = ClipExporter::freeName(to);
        const QByteArray source = QFile::encodeName(from);
        const QByteArray destination = QFile::encodeName(target);
        if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, destination.constData(), RENAME_NOREPLACE) == 0)
            return target;
        if (errno == EEXIST) continue; // taken between the look and the move: look again
        if (errno != EINVAL && errno != ENOSYS) {
            *error = QString::fromLocal8Bit(std::strerror(errno));
            return std::nullopt;
        }
        // A file system without the no-replace move: a hard link fails on an existing name too.
        if (::link(source.constData(), destination.constData()) == 0) {
            ::unlink(source.constData());
            return target;
        }
        if (errno == EEXIST) continue;
        *error = QString::fromLocal8Bit(std::strerror(errno));
        return std::nullopt;
    }
    *error = QStringLiteral("no free name");
    return std::nullopt;
}

int64_t ticks(const MediaTime& t, AVRational tb)
{
    // t.value / t.timescale seconds in units of tb.num / tb.den
    return av_rescale_q_rnd(
        t.value, AVRational { 1, t.timescale }, tb, static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

// A later segment must carry what the clip's track was set up with: same codec and picture size
// (video) or same codec, rate and channels (audio).
std::optional<QString> incompatibility(const AVCodecParameters* clip, const AVCodecParameters* piece)
{
    if (clip->codec_id != piece->codec_id) return QStringLiteral("codec differs from the clip's");
    if (clip->codec_type == AVMEDIA_TYPE_VIDEO && (clip->width != piece->width || clip->height != piece->height))
        return QStringLiteral("picture size %1x%2 differs from the clip's %3x%4")
            .arg(piece->width)
            .arg(piece->height)
            .arg(clip->width)
            .arg(clip->height);
    if (clip->codec_type == AVMEDIA_TYPE_AUDIO
        && (clip->sample_rate != piece->sample_rate || clip->ch_layout.nb_channels != piece->ch_layout.nb_channels))
        return QStringLiteral("audio format differs from the clip's");
    return std::nullopt;
}

QString writeError(const QString& path, int rc)
{
    return QStringLiteral("Could not write \"%1\": %2").arg(QFileInfo(path).fileName(), avErrorText(rc));
}

} // namespace

ClipExporter::Result ClipExporter::exportConcatenated(
    const std::vector<Segment>& segments, const MediaTime& trimFromPTS, const QString& destination)
{
    if (segments.empty())
        return Result::failure(QStringLiteral("Nothing was buffered yet — wait a second after starting preview."));

    // Plan: which part of which file lands where. Unreadable files and files without video are
    // skipped without a word; they keep their index, so only the given first segment is ever cut.
    std::vector<Piece> pieces;
    MediaTime insertion = MediaTime::zero();
    for (size_t i = 0; i < segments.size(); ++i) {
        Piece piece;
        piece.input = openInput(segments[i].url);
        if (!piece.input) continue;
        AVFormatContext* in = piece.input.get();
        piece.videoIndex = av_find_best_stream(in, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        if (piece.videoIndex < 0) continue;
        piece.audioIndex = av_find_best_stream(in, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
        if (piece.audioIndex < 0) piece.audioIndex = -1;
        const MediaTime duration = segmentDuration(in, piece.videoIndex);
        if (!duration.isNumeric() || duration <= MediaTime::zero()) continue;
        MediaTime start = MediaTime::zero();
        MediaTime length = duration;
        if (i == 0) {
            const MediaTime offset = trimFromPTS - segments[i].startPTS;
            if (offset.isNumeric() && offset > MediaTime::zero()) {
                // A file shorter than the cut holds nothing of the clip's span.
                if (!(offset < duration)) continue;
                start = offset;
                length = duration - offset;
            }
        }
        piece.rangeStart = start;
        piece.rangeEnd = start + length;
        piece.insertAt = insertion;
        insertion = insertion + length;
        pieces.push_back(std::move(piece));
    }

    // The folder may have gone since the recording started. A file already at the destination
    // stays: the clip takes a free name beside it.
    const QFileInfo target(destination);
    QDir().mkpath(target.absolutePath());

    if (pieces.empty()) return Result::failure(QStringLiteral("Export failed."));

    const QString temporary = target.absolutePath() + QStringLiteral("/.") + target.fileName() + QLatin1Char('.')
        + QUuid::createUuid().toString(QUuid::WithoutBraces).left(8) + QStringLiteral(".part");
    AVFormatContext* raw = nullptr;
    if (avformat_alloc_output_context2(&raw, nullptr, "mp4", temporary.toUtf8().constData()) < 0 || !raw)
        return Result::failure(QStringLiteral("Could not set up exporter."));
    OutputFormatPtr out(raw);

    AVStream* video = avformat_new_stream(out.get(), nullptr);
    if (!video) return Result::failure(QStringLiteral("Could not create a video composition."));
    const AVStream* firstVideo = pieces.front().input->streams[pieces.front().videoIndex];
    avcodec_parameters_copy(video->codecpar, firstVideo->codecpar);
    video->codecpar->codec_tag = 0;
    video->time_base = firstVideo->time_base;
    AVStream* audio = nullptr;
    for (const Piece& piece : pieces) {
        if (piece.audioIndex < 0) continue;
        const AVStream* firstAudio = piece.input->streams[piece.audioIndex];
        audio = avformat_new_stream(out.get(), nullptr);
        if (!audio) break; // the clip goes on without sound
        avcodec_parameters_copy(audio->codecpar, firstAudio->codecpar);
        audio->codecpar->codec_tag = 0;
        // The demuxer leaves it unset; AAC frames are always 1024 samples.
        if (audio->codecpar->frame_size == 0 && audio->codecpar->codec_id == AV_CODEC_ID_AAC)
            audio->codecpar->frame_size = 1024;
        audio->time_base = firstAudio->time_base;
        break;
    }

    auto cleanUp = [&](const QString& text) {
        out.reset();
        QFile::remove(temporary);
        return Result::failure(text);
    };
    int rc = avio_open(&out->pb, temporary.toUtf8().constData(), AVIO_FLAG_WRITE);
    if (rc < 0) return cleanUp(writeError(destination, rc));
    // The index goes at the front, so that players and uploads can start before the end. With room
    // reserved for it up front the file is written once; "faststart" would write it a second time
    // to move the index, which doubles the cost of an export. The reserve is generous (the index
    // needs under 40 bytes a sample); without sample counts faststart is the way.
    // The counts come from each segment's own index, which a damaged file can make claim millions
    // of samples that are not there: the reserve would fill the clip with gigabytes of padding, or
    // exceed what the muxer takes and lose the clip. No sample is smaller than a byte of its file,
    // so a count above the files' sizes is no count.
    int64_t samples = 0;
    int64_t inputBytes = 0;
    for (const Piece& piece : pieces) {
        const int64_t v = piece.input->streams[piece.videoIndex]->nb_frames;
        const int64_t a = piece.audioIndex >= 0 ? piece.input->streams[piece.audioIndex]->nb_frames : 0;
        const int64_t bytes = piece.input->pb ? avio_size(piece.input->pb) : -1;
        inputBytes = (bytes > 0 && inputBytes >= 0) ? inputBytes + bytes : -1;
        samples = (v > 0 && a >= 0 && samples >= 0 && v <= inputBytes && a <= inputBytes) ? samples + v + a : -1;
        if (samples > inputBytes) samples = -1;
    }
    const int64_t reserve = samples > 0 ? 256 * 1024 + samples * 48 : -1;
    AVDictionary* rawOptions = nullptr;
    if (samples > 0 && reserve <= std::numeric_limits<int>::max())
        av_dict_set_int(&rawOptions, "moov_size", reserve, 0);
    else
        av_dict_set(&rawOptions, "movflags", "+faststart", 0);
    DictionaryPtr options(rawOptions);
    rawOptions = options.release();
    rc = avformat_write_header(out.get(), &rawOptions);
    options.reset(rawOptions);
    if (rc < 0) return cleanUp(writeError(destination, rc));

    // A piece that cannot go in leaves the insertion point where it was: later pieces move up.
    auto pullBack = [&](size_t p) {
        if (p + 1 >= pieces.size()) return;
        const MediaTime length = pieces[p + 1].insertAt - pieces[p].insertAt;
        for (size_t q = p + 1; q < pieces.size(); ++q)
            pieces[q].insertAt = pieces[q].insertAt - length;
    };

    int64_t lastVideoDts = INT64_MIN;
    int64_t lastAudioDts = INT64_MIN;
    PacketPtr packet(av_packet_alloc());
    for (size_t p = 0; p < pieces.size(); ++p) {
        Piece& piece = pieces[p];
        AVFormatContext* in = piece.input.get();
        const AVStream* inVideo = in->streams[piece.videoIndex];
        if (auto why = incompatibility(video->codecpar, inVideo->codecpar)) {
            logLine(QStringLiteral("insertTimeRange failed: ") + *why);
            pullBack(p);
            continue;
        }
        bool withAudio = audio && piece.audioIndex >= 0;
        if (withAudio) {
            if (auto why = incompatibility(audio->codecpar, in->streams[piece.audioIndex]->codecpar)) {
                logLine(QStringLiteral("insertTimeRange failed: ") + *why);
                withAudio = false;
                // The video of this piece is in all the same, and the next piece lands at its
                // time: a failed audio insert leaves the insertion point unmoved too.
                pullBack(p);
            }
        }
        if (piece.rangeStart > MediaTime::zero()) {
            // Start at the key frame at or before the cut; the edit list hides what lies before it.
            const int64_t at = ticks(piece.rangeStart, inVideo->time_base);
            if (av_seek_frame(in, piece.videoIndex, at, AVSEEK_FLAG_BACKWARD) < 0)
                av_seek_frame(in, piece.videoIndex, 0, AVSEEK_FLAG_BACKWARD);
        }
        for (;;) {
            rc = av_read_frame(in, packet.get());
            if (rc < 0) break; // the end of this file, or a damaged tail: what was read stays
            const bool isVideo = packet->stream_index == piece.videoIndex;
            const bool isAudio = withAudio && packet->stream_index == piece.audioIndex;
            if (!isVideo && !isAudio) {
                av_packet_unref(packet.get());
                continue;
            }
            const AVStream* inStream = in->streams[packet->stream_index];
            AVStream* outStream = isVideo ? video : audio;
            const int64_t shift
                = ticks(piece.insertAt, inStream->time_base) - ticks(piece.rangeStart, inStream->time_base);
            // What the audio encoder gave out after the segment's end is its flush, not sound of
            // that time: the next segment's sound takes over there.
            if (isAudio && p + 1 < pieces.size() && packet->pts != AV_NOPTS_VALUE
                && packet->pts >= ticks(piece.rangeEnd, inStream->time_base)) {
                av_packet_unref(packet.get());
                continue;
            }
            if (isVideo && piece.rangeStart > MediaTime::zero() && packet->pts != AV_NOPTS_VALUE
                && packet->duration > 0) {
                // The picture on show at the cut may have been on show for seconds (a still
                // screen): it starts at the cut instead, so that the edit does not hide it.
                const int64_t cut = ticks(piece.rangeStart, inStream->time_base);
                if (packet->pts < cut && packet->pts + packet->duration > cut) {
                    packet->duration -= cut - packet->pts;
                    packet->pts = packet->dts = cut;
                }
            }
            if (packet->pts != AV_NOPTS_VALUE) packet->pts += shift;
            if (packet->dts != AV_NOPTS_VALUE) packet->dts += shift;
            av_packet_rescale_ts(packet.get(), inStream->time_base, outStream->time_base);
            int64_t& last = isVideo ? lastVideoDts : lastAudioDts;
            const int64_t dts = packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts;
            // A segment's audio opens with the encoder's priming packet, which reaches back over
            // the end of the one before: the clip's track can only move forward.
            if (dts == AV_NOPTS_VALUE || dts <= last) {
                av_packet_unref(packet.get());
                continue;
            }
            last = dts;
            packet->stream_index = outStream->index;
            packet->pos = -1;
            rc = av_interleaved_write_frame(out.get(), packet.get());
            if (rc < 0) return cleanUp(writeError(destination, rc));
        }
        piece.input.reset(); // release the file early: eviction may want it gone
    }

    rc = av_write_trailer(out.get());
    if (rc < 0) return cleanUp(writeError(destination, rc));
    rc = avio_closep(&out->pb);
    if (rc < 0) return cleanUp(writeError(destination, rc));
    out.reset();

    QString error;
    const std::optional<QString> written = moveWithoutReplacing(temporary, destination, &error);
    if (!written) {
        QFile::remove(temporary);
        return Result::failure(QStringLiteral("Could not write \"%1\": %2").arg(target.fileName(), error));
    }
    return Result::success(*written);
}

QString ClipExporter::freeName(const QString& path)
{
    const QFileInfo info(path);
    const QString folder = info.absolutePath() + QLatin1Char('/');
    const QString suffix = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    const QString stem = info.fileName().chopped(suffix.size());
    QString candidate = path;
    for (int n = 2; QFileInfo::exists(candidate) || QFileInfo(candidate).isSymLink(); ++n)
        candidate = folder + stem + QStringLiteral(" (%1)").arg(n) + suffix;
    return candidate;
}
