#include "app/cli/DetectCommand.h"

#include "app/AppSettings.h"
#include "core/LocalFileName.h"
#include "journal/ClipAutoDetect.h"
#include "journal/ClipFrameReader.h"
#include "journal/PnLTagWriter.h"

#include <QDir>
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
#include <cstdlib>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <variant>
#include <vector>

namespace {

const char* const usageText = "usage: velotape detect [--area X,Y,W,H] [--json] [--write] [--] CLIP...\n";

struct Options {
    QStringList clips;
    std::optional<QRectF> area;
    bool json = false;
    bool write = false;
    bool help = false;
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

// What is wrong when the area shows nothing readable of a clip of `size` pixels; empty when it does.
QString outsideText(const QRectF& area, QSizeF size)
{
    if (ClipAutoDetect::cropInImage(area, size, size, size.toSize())) return {};
    const QString where
        = QStringLiteral("the area %1,%2,%3,%4").arg(area.x()).arg(area.y()).arg(area.width()).arg(area.height());
    const QString picture = QStringLiteral("the clip's %1x%2 picture").arg(size.width()).arg(size.height());
    if (!QRectF(QPointF(0, 0), size).intersects(area)) return where + QStringLiteral(" lies outside ") + picture;
    return where + QStringLiteral(" holds 4 pixels or fewer across of ") + picture;
}

// The path from the root, made of the names as bytes: the working folder's name need not be UTF-8
// either.
QString absolutePath(const QString& path)
{
    if (path.startsWith(u'/')) return QDir::cleanPath(path);
    char* here = ::getcwd(nullptr, 0);
    if (!here) return QFileInfo(path).absoluteFilePath();
    const QString folder = LocalFileName::decode(QByteArray(here));
    std::free(here);
    return QDir::cleanPath(folder + u'/' + path);
}

bool isExistingFile(const QString& name)
{
    struct stat info { };
    return ::stat(LocalFileName::encode(name).constData(), &info) == 0 && S_ISREG(info.st_mode);
}

// The options, or the text of what was wrong with them. "--" ends the options: what follows is a
// clip whatever it looks like.
std::variant<Options, QString> parse(const QStringList& args)
{
    Options o;
    bool optionsEnded = false;
    for (int i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (optionsEnded) {
            o.clips << a;
        } else if (a == QStringLiteral("--")) {
            optionsEnded = true;
        } else if ((a == QStringLiteral("-h") || a == QStringLiteral("--help")) && !isExistingFile(a)) {
            // A clip may be called "-h"; it is asked for help only when there is no such file.
            o.help = true;
        } else if (a == QStringLiteral("--json")) {
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
                    .arg(LocalFileName::printable(value));
        } else if (a.startsWith(QStringLiteral("--"))) {
            return QStringLiteral("unknown option '%1'").arg(LocalFileName::printable(a));
        } else {
            o.clips << a;
        }
    }
    if (o.help) return o;
    if (o.clips.isEmpty()) return QStringLiteral("no clip given");
    return o;
}

struct Reading {
    std::optional<ClipAutoDetect::Result> result;
    QString outside; // why the area shows nothing of the clip, when it does not
    std::optional<QString> disputed; // two readings of the figure disagreed
    bool kept = false; // --write found the user's own tag and left it
    bool written = false;
    QString notWritten; // why --write left the sidecar as it was
};

QJsonObject readingJson(const QString& file, const Reading& r)
{
    QJsonObject o;
    o.insert(QStringLiteral("file"), file);
    o.insert(QStringLiteral("outcome"), r.result ? QJsonValue(rawValue(r.result->outcome)) : QJsonValue());
    o.insert(QStringLiteral("pnl"), r.result ? QJsonValue(r.result->pnl) : QJsonValue());
    o.insert(QStringLiteral("rawText"), r.result ? QJsonValue(r.result->rawText) : QJsonValue());
    // The figure as first read when a second reading disagreed: no outcome, tag it by hand.
    o.insert(QStringLiteral("disputed"), r.disputed ? QJsonValue(*r.disputed) : QJsonValue());
    if (!r.outside.isEmpty()) o.insert(QStringLiteral("error"), r.outside);
    return o;
}

QString readingLine(const QString& file, const Reading& r)
{
    // One line a clip, whatever its name holds.
    QString line = LocalFileName::printable(file) + QStringLiteral(": ");
    if (!r.outside.isEmpty()) return line + r.outside;
    if (r.disputed)
        return line + QStringLiteral("unsure of '") + LocalFileName::printable(*r.disputed)
            + QStringLiteral("': tag it by hand");
    if (!r.result) return line + QStringLiteral("no number");
    line
        += ClipAutoDetect::summary(*r.result) + QStringLiteral(", read as '") + r.result->rawText + QStringLiteral("'");
    if (r.written) line += QStringLiteral(", written");
    if (r.kept) line += QStringLiteral(", already tagged: kept your value");
    if (!r.notWritten.isEmpty()) line += QStringLiteral(", not written");
    return line;
}

} // namespace

int runDetectCommand(const QStringList& args, QTextStream& out, QTextStream& err, const RecognizerFactory& recognizers,
    AppSettings* settings)
{
    const auto parsed = parse(args);
    if (const QString* error = std::get_if<QString>(&parsed)) {
        err << "velotape detect: " << *error << '\n' << usageText;
        return 2;
    }
    const Options& o = std::get<Options>(parsed);
    if (o.help) {
        out << usageText;
        return 0;
    }

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
            err << "velotape detect: cannot read a video frame from '" << LocalFileName::printable(clip) << "'\n";
            unreadable = true;
            continue;
        }
        sizes.push_back(QSizeF(frame->size()));
    }
    if (unreadable) return 2;

    std::vector<Reading> readings(size_t(o.clips.size()));
    for (size_t i = 0; i < sizes.size(); ++i)
        readings[i].outside = outsideText(*area, sizes[i]);
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
                    if (!readings[size_t(i)].outside.isEmpty()) continue;
                    // In the clip's own pixels: the picture is its own source.
                    const QSizeF size = sizes[size_t(i)];
                    const ClipAutoDetect::Detection found
                        = ClipAutoDetect::detect(o.clips[i], *area, size, size, *recognizer);
                    readings[size_t(i)].result = found.result;
                    readings[size_t(i)].disputed = found.disputed;
                }
            });
        }
    }
    if (engineMissing) {
        err << "velotape detect: Reading the P&L needs Tesseract's English data (tesseract-ocr-eng).\n";
        return 1;
    }

    bool unwritten = false;
    if (o.write) {
        for (int i = 0; i < o.clips.size(); ++i) {
            Reading& r = readings[size_t(i)];
            if (!r.result) continue;
            const QUrl url = QUrl::fromLocalFile(absolutePath(o.clips[i]));
            const QString shown = LocalFileName::printable(o.clips[i]);
            const PnLTagWriter::Written written = PnLTagWriter::write(url, *r.result);
            switch (written.status) {
            case PnLTagWriter::Written::Status::written:
                r.written = true;
                break;
            case PnLTagWriter::Written::Status::kept:
                r.kept = true;
                if (o.json) err << "velotape detect: " << shown << " is already tagged; kept your value\n";
                break;
            case PnLTagWriter::Written::Status::failed:
                r.notWritten = written.problem;
                unwritten = true;
                err << "velotape detect: could not write the tag of " << shown << ": " << written.problem << '\n';
                break;
            }
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
    return unwritten ? 1 : 0;
}
