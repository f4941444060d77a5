#include "journal/TradeImporter.h"

#include "journal/ClipFrameReader.h"
#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "journal/JournalTradesFile.h"
#include "journal/TradeImport.h"

#include <QFile>
#include <QFileInfo>

namespace TradeImporter {

namespace {

// Larger than any broker's history of a lifetime of trades; past it the file is something else.
constexpr qint64 maxFileBytes = 512LL * 1024 * 1024;

QString fileNameOf(const QString& path)
{
    return QFileInfo(path).fileName();
}

} // namespace

double clipDuration(const QUrl& clip)
{
    const ClipFrameReader reader(clip.toLocalFile());
    return reader.isOpen() ? reader.duration() : 0;
}

Report importFile(const QString& csvPath, const QString& folder, const DurationOf& durationOf)
{
    QFile file(csvPath);
    const QFileInfo info(csvPath);
    if (!info.isFile()) {
        Report r;
        r.error = info.exists() ? QStringLiteral("%1 is not a file").arg(csvPath)
                                : QStringLiteral("%1 does not exist").arg(csvPath);
        return r;
    }
    if (info.size() > maxFileBytes || !file.open(QIODevice::ReadOnly)) {
        Report r;
        r.error = info.size() > maxFileBytes ? QStringLiteral("%1 is too large for a file of trades").arg(csvPath)
                                             : QStringLiteral("%1 can't be read: %2").arg(csvPath, file.errorString());
        return r;
    }
    return importBytes(file.readAll(), folder, durationOf);
}

Report importBytes(const QByteArray& csv, const QString& folder, const DurationOf& durationOf)
{
    Report report;
    const TradeFileReader::Result file = TradeFileReader::read(csv);
    if (!file.error.isEmpty()) {
        report.error = file.error;
        return report;
    }
    if (file.readAsLatin1) report.notes << QStringLiteral("The file is not UTF-8; it was read as Latin-1.");
    std::vector<int> skippedLines;
    for (const TradeFileReader::Skipped& s : file.skipped) {
        skippedLines.push_back(s.line);
        report.skippedRows << QStringLiteral("Line %1 skipped: %2.").arg(s.line).arg(s.reason);
    }

    const QList<ClipEntry> entries = ClipJournalStore::scanFolder(folder);
    std::vector<TradeImport::Clip> clips;
    clips.reserve(size_t(entries.size()));
    for (const ClipEntry& e : entries) {
        const double end = e.date();
        const double length = std::max(0.0, durationOf(e.url));
        // An existing sidecar that loads as the empty record is one that can't be read (saving the
        // empty record removes the file).
        const bool readable = !e.meta.isEmpty() || !QFileInfo::exists(ClipMetaStore::sidecarPath(e.url));
        clips.push_back({ e.url, { end - length, end }, e.meta, readable });
    }
    const JournalTradesFile::Loaded before = JournalTradesFile::load(folder);
    const TradeImport::Plan plan = TradeImport::plan(clips, before.trades, file.trades);

    report.imported = true;
    report.read = int(file.trades.size());
    report.alreadyImported = plan.alreadyImported;
    for (const TradeImport::Plan::LeftOut& l : plan.leftOut) {
        report.notes << QStringLiteral("%1 can't be read; its %2 left out until it is mended.")
                            .arg(fileNameOf(ClipMetaStore::sidecarPath(clips[size_t(l.clip)].url)),
                                l.trades == 1 ? QStringLiteral("trade was")
                                              : QStringLiteral("%1 trades were").arg(l.trades));
        ++report.failedClips;
    }
    // Every changed sidecar in one batch, each only over the record the plan was made from: a tag or
    // a note written since stays, and the clip's trades wait for the next import.
    std::vector<ClipMetaStore::Pending> pending;
    pending.reserve(plan.changes.size());
    for (const TradeImport::Plan::Change& change : plan.changes) {
        const TradeImport::Clip& clip = clips[size_t(change.clip)];
        pending.push_back({ clip.url, change.meta, clip.meta });
    }
    const ClipMetaStore::SavedAll saved = ClipMetaStore::saveAll(pending);
    for (size_t i = 0; i < plan.changes.size(); ++i) {
        const TradeImport::Plan::Change& change = plan.changes[i];
        const std::optional<ClipMetaStore::SaveFailure>& failed = saved.failures[i];
        if (!failed) {
            report.matched += change.added;
        } else {
            report.notes << QStringLiteral("Couldn't write %1 (%2); its %3 not imported.")
                                .arg(ClipMetaStore::sidecarPath(pending[i].clip), failed->text,
                                    change.added == 1 ? QStringLiteral("trade was")
                                                      : QStringLiteral("%1 trades were").arg(change.added));
            ++report.failedClips;
        }
    }
    if (!saved.unflushed.isEmpty()) report.notes << saved.unflushed + u'.';
    if (!plan.withoutClip.isEmpty()) {
        QString error;
        if (before.unreadable) {
            report.notes << QStringLiteral("%1 can't be read; the %2 without a clip were left out.")
                                .arg(JournalTradesFile::path(folder))
                                .arg(plan.withoutClip.size());
        } else if (!JournalTradesFile::save(folder, before.trades + plan.withoutClip, &error)) {
            report.notes << QStringLiteral("Couldn't write %1 (%2); the %3 trades without a clip were not imported.")
                                .arg(JournalTradesFile::path(folder), error)
                                .arg(plan.withoutClip.size());
        } else {
            report.withoutClip = int(plan.withoutClip.size());
        }
    }
    report.summary
        = TradeImport::summary(report.read, report.matched, report.withoutClip, report.alreadyImported, skippedLines);
    return report;
}

} // namespace TradeImporter
