#pragma once

#include <QList>
#include <QSize>
#include <QString>

// A short MP4 made by the ffmpeg program: a plain background with text drawn by FFmpeg's drawtext,
// encoded as the recorder encodes (HEVC by libx265, ultrafast, zero latency, no B-frames, a key
// frame a second, 20 Mb/s, 30 fps, 4:2:0). What a P&L panel looks like to the detector, with
// nothing of ours in the making of it.
struct DrawnText {
    QString text;
    // A file of /usr/share/fonts/truetype/dejavu (fonts-dejavu-core), or an absolute path.
    QString font = QStringLiteral("DejaVuSans.ttf");
    int size = 20;
    QString colour = QStringLiteral("white");
    QString x = QStringLiteral("20"); // drawtext expressions: may move with t
    QString y = QStringLiteral("20");
    QString enable; // drawtext's enable expression; empty: always shown
};

// Writes `path`; false (with ffmpeg's message on stderr) when ffmpeg fails.
bool makeDrawnTextClip(
    const QString& path, QSize size, const QString& background, double seconds, const QList<DrawnText>& texts);
