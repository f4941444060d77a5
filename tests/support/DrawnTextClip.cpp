#include "support/DrawnTextClip.h"

#include <QProcess>

#include <cstdio>

namespace {

// drawtext's own quoting: the text goes between single quotes inside the filter graph.
QString quoted(QString text)
{
    text.replace(QStringLiteral("\\"), QStringLiteral("\\\\"));
    text.replace(QStringLiteral("'"), QStringLiteral("\\'"));
    text.replace(QStringLiteral(":"), QStringLiteral("\\:"));
    text.replace(QStringLiteral("%"), QStringLiteral("\\%"));
    return text;
}

} // namespace

bool makeDrawnTextClip(
    const QString& path, QSize size, const QString& background, double seconds, const QList<DrawnText>& texts)
{
    QStringList filters;
    for (const DrawnText& t : texts) {
        const QString font
            = t.font.startsWith(u'/') ? t.font : QStringLiteral("/usr/share/fonts/truetype/dejavu/") + t.font;
        QString f = QStringLiteral("drawtext=fontfile=%1:text='%2':fontsize=%3:fontcolor=%4:x=%5:y=%6")
                        .arg(font, quoted(t.text))
                        .arg(t.size)
                        .arg(t.colour, t.x, t.y);
        if (!t.enable.isEmpty()) f += QStringLiteral(":enable='%1'").arg(t.enable);
        filters << f;
    }
    QProcess ffmpeg;
    ffmpeg.setProcessChannelMode(QProcess::MergedChannels);
    ffmpeg.start(QStringLiteral("ffmpeg"),
        { QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-y"),
            QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
            QStringLiteral("color=c=%1:s=%2x%3:r=30:d=%4")
                .arg(background)
                .arg(size.width())
                .arg(size.height())
                .arg(seconds),
            QStringLiteral("-vf"), filters.isEmpty() ? QStringLiteral("null") : filters.join(u','),
            QStringLiteral("-c:v"), QStringLiteral("libx265"), QStringLiteral("-preset"), QStringLiteral("ultrafast"),
            QStringLiteral("-tune"), QStringLiteral("zerolatency"), QStringLiteral("-b:v"), QStringLiteral("20M"),
            QStringLiteral("-x265-params"),
            QStringLiteral("keyint=30:min-keyint=1:bframes=0:rc-lookahead=0:frame-threads=1:log-level=error"),
            QStringLiteral("-tag:v"), QStringLiteral("hvc1"), QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p"),
            path });
    if (!ffmpeg.waitForFinished(30000) || ffmpeg.exitStatus() != QProcess::NormalExit || ffmpeg.exitCode() != 0) {
        std::fprintf(stderr, "ffmpeg: %s\n", ffmpeg.readAll().constData());
        return false;
    }
    return true;
}
