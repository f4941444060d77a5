#include "app/cli/DetectCommand.h"

#include "app/AppSettings.h"
#include "journal/ClipAutoDetect.h"
#include "journal/ClipFrameReader.h"
#include "journal/ClipMetaStore.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <QUrl>

extern "C" {
#include <libavutil/log.h>
}

#include <atomic>
#include <cmath>
#include <memory>
#include <thread>
#include <variant>
#include <vector>

namespace {

const char* const usageText = "usage: velotape detect CLIP... [--area X,Y,W,H] [--json] [--write]\n";

struct Options {
    QStringList clips;
    std::optional<QRectF> area;
    bool json = false;
    bool write = false;
};

std::optional<QRectF> parseArea(const QString& text)
{
    const QStringList parts = text.split(u',');
    if (parts.size() != 4) return std::nullopt;
    double v[4];
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        v[i] = parts[i].trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(v[i])) return std::nullopt;
    }
    if (!(v[2] > 0) || !(v[3] > 0)) return std::nullopt;
    return QRectF(v[0], v[1], v[2], v[3]);
}

// The options, or the text of what was wrong with them.
std::variant<Options, QString> parse(const QStringList& args)
{
    Options o;
    for (int i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == QStringLiteral("--json")) {
            o.json = true;
        } else if (a == QStringLiteral("--write")) {
            o.write = true;
        } else if (a == QStringLiteral("--area") || a.startsWith(QStringLiteral("--area="))) {
            QString value;
            if (a == QStringLiteral("--area")) {
                if (i + 1 >= args.size()) return QStringLiteral("--area needs X,Y,W,H");
                value = args[++i];
            } else {
                value = a.mid(7);
            }
            o.area = parseArea(value);
            if (!o.area)
                return QStringLiteral("--area takes four numbers X,Y,W,H with a width and height above 0, not '%1'")
                    .arg(value);
        } else if (a.startsWith(QStringLiteral("--"))) {
            return QStringLiteral("unknown option '%1'").arg(a);
        } else {
            o.clips << a;
        }
    }
    if (o.clips.isEmpty()) return QStringLiteral("no clip given");
    return o;
}

struct Reading {
    std::optional<ClipAutoDetect::Result> result;
    bool kept = false; // --write found the user's own tag and left it
    bool written = false;
};

QJsonObject readingJson(const QString& file, const Reading& r)
{
    QJsonObject o;
    o.insert(QStringLiteral("file"), file);
    o.insert(QStringLiteral("outcome"), r.result ? QJsonValue(rawValue(r.result->outcome)) : QJsonValue());
    o.insert(QStringLiteral("pnl"), r.result ? QJsonValue(r.result->pnl) : QJsonValue());
    o.insert(QStringLiteral("rawText"), r.result ? QJsonValue(r.result->rawText) : QJsonValue());
    return o;
}

QString readingLine(const QString& file, const Reading& r)
{
    QString line = file + QStringLiteral(": ");
    if (!r.result) return line + QStringLiteral("no number");
    line
        += ClipAutoDetect::summary(*r.result) + QStringLiteral(", read as '") + r.result->rawText + QStringLiteral("'");
    if (r.written) line += QStringLiteral(", written");
    if (r.kept) line += QStringLiteral(", already tagged: kept your value");
    return line;
}

} // namespace

int runDetectCommand(const QStringList& args, QTextStream& out, QTextStream& err, const RecognizerFactory& recognizers,
    AppSettings* settings)
{
    if (args.contains(QStringLiteral("--help")) || args.contains(QStringLiteral("-h"))) {
        out << usageText;
        return 0;
    }
    const auto parsed = parse(args);
    if (const QString* error = std::get_if<QString>(&parsed)) {
        err << "velotape detect: " << *error << '\n' << usageText;
        return 2;
    }
    const Options& o = std::get<Options>(parsed);

    std::optional<QRectF> area = o.area;
    if (!area) {
        area = settings ? settings->areaMonitorRect() : AppSettings().areaMonitorRect();
        if (!area) {
            err << "velotape detect: no watch area is saved; give one in the clip's pixels with --area X,Y,W,H\n";
            return 2;
        }
    }

    // Our one line names a clip that can't be read; the demuxer's own complaints would only repeat it.
    av_log_set_level(AV_LOG_FATAL);
    // Every clip is checked before any is scanned, so that a typo in a long list costs nothing.
    std::vector<QSizeF> sizes;
    bool unreadable = false;
    for (const QString& clip : o.clips) {
        ClipFrameReader reader(clip);
        const auto frame = reader.isOpen() ? reader.frameAt(0, QSize(1 << 15, 1 << 15), 1.0) : std::nullopt;
        if (!frame) {
            err << "velotape detect: cannot read a video frame from '" << clip << "'\n";
            unreadable = true;
            continue;
        }
        sizes.push_back(QSizeF(frame->size()));
    }
    if (unreadable) return 2;

    std::vector<Reading> readings(size_t(o.clips.size()));
    std::atomic<int> next { 0 };
    std::atomic<bool> engineMissing { false };
    const int workers = std::max(1, std::min(int(o.clips.size()), QThread::idealThreadCount()));
    {
        std::vector<std::jthread> threads;
        for (int w = 0; w < workers; ++w) {
            threads.emplace_back([&] {
                // Each worker's own engine: an engine is never shared between threads.
                const std::unique_ptr<TextRecognizer> recognizer = recognizers ? recognizers() : nullptr;
                if (!recognizer) {
                    engineMissing = true;
                    return;
                }
                for (int i = next++; i < o.clips.size(); i = next++) {
                    // In the clip's own pixels: the picture is its own source.
                    const QSizeF size = sizes[size_t(i)];
                    readings[size_t(i)].result = ClipAutoDetect::detect(o.clips[i], *area, size, size, *recognizer);
                }
            });
        }
    }
    if (engineMissing) {
        err << "velotape detect: the OCR engine does not start (is tesseract-ocr-eng installed?)\n";
        return 1;
    }

    if (o.write) {
        for (int i = 0; i < o.clips.size(); ++i) {
            Reading& r = readings[size_t(i)];
            if (!r.result) continue;
            const QUrl url = QUrl::fromLocalFile(QFileInfo(o.clips[i]).absoluteFilePath());
            const ClipMeta meta = ClipMetaStore::load(url);
            if (ClipAutoDetect::isTagged(meta)) {
                r.kept = true;
                if (o.json) err << "velotape detect: " << o.clips[i] << " is already tagged; kept your value\n";
                continue;
            }
            const ClipMeta tagged = ClipAutoDetect::withResult(meta, *r.result);
            ClipMetaStore::save(tagged, url);
            r.written = ClipMetaStore::load(url) == tagged;
            if (!r.written) err << "velotape detect: could not write the tag of " << o.clips[i] << '\n';
        }
    }

    if (o.json) {
        QJsonArray array;
        for (int i = 0; i < o.clips.size(); ++i)
            array.append(readingJson(o.clips[i], readings[size_t(i)]));
        out << QJsonDocument(array).toJson(QJsonDocument::Indented);
    } else {
        for (int i = 0; i < o.clips.size(); ++i)
            out << readingLine(o.clips[i], readings[size_t(i)]) << '\n';
    }
    return 0;
}
