#include "ui/clips/ClipsScreenModel.h"

#include "app/AppSettings.h"
#include "app/session/SessionActions.h"
#include "app/session/SessionModels.h"
#include "app/session/SessionStatus.h"
#include "core/KeyedJobs.h"
#include "journal/ClipJournalStore.h"
#include "journal/ClipMetaStore.h"
#include "journal/ClipThumbnailer.h"
#include "journal/JournalFilter.h"
#include "journal/TradeImporter.h"
#include "platform/DesktopIntegration.h"
#include "ui/clips/ClipEdits.h"

#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>
#include <QSet>

#include <algorithm>
#include <limits>
#include <vector>

namespace {

// A card shows its preview at most this large; the decoder's own limit is larger, and thousands
// of previews are kept.
constexpr QSize previewSize { 480, 300 };

std::optional<ClipThumbnailer::ClipPreview> smallPreview(const QUrl& url)
{
    std::optional<ClipThumbnailer::ClipPreview> made = ClipThumbnailer::generate(url);
    if (made && (made->image.width() > previewSize.width() || made->image.height() > previewSize.height()))
        made->image = made->image.scaled(previewSize, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return made;
}

} // namespace

ClipsScreenModel::ClipsScreenModel(const SessionModels& m, QObject* parent)
    : QObject(parent)
    , models(m)
    , thumbnailer(new ClipThumbnailer(&smallPreview, this))
    , jobs(new KeyedJobs(1, this))
{
    connect(models.journal, &ClipJournalStore::clipsChanged, this, [this] {
        journalIndexStale = true;
        tagsStale = true;
        emit metaChanged();
    });
    // A new clip lands in the listing as soon as it is saved.
    connect(models.status, &SessionStatus::lastSavedURLChanged, this, &ClipsScreenModel::scanClips);
}

QString ClipsScreenModel::saveFolder() const
{
    return models.settings->saveFolderPath();
}

QList<ClipsScreenModel::ClipEntry> ClipsScreenModel::listFolder(const QString& folder)
{
    if (folder.isEmpty()) return {};
    const QDir dir(folder);
    // Without QDir::Hidden, names that begin with a dot are skipped. By name first, so that clips of
    // the same time keep one order on every run.
    const QFileInfoList files = dir.entryInfoList(QDir::Files | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    struct Listed {
        qint64 order; // milliseconds since the epoch; the distant past when unknown
        ClipEntry clip;
    };
    std::vector<Listed> listed;
    listed.reserve(size_t(files.size()));
    for (const QFileInfo& file : files) {
        if (file.suffix().compare(QLatin1StringView("mp4"), Qt::CaseInsensitive) != 0) continue;
        const QDateTime modified = file.lastModified();
        // The same spelling of the location as the journal store's, so that the two find each other.
        listed.push_back({ modified.isValid() ? modified.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min(),
            { QUrl::fromLocalFile(dir.filePath(file.fileName())), std::max<qint64>(file.size(), 0), modified } });
    }
    // By a number: comparing the dates themselves converts time zones on every comparison.
    std::stable_sort(listed.begin(), listed.end(), [](const Listed& a, const Listed& b) { return a.order > b.order; });
    QList<ClipEntry> clips;
    clips.reserve(qsizetype(listed.size()));
    for (Listed& l : listed)
        clips.push_back(std::move(l.clip));
    return clips;
}

void ClipsScreenModel::scanClips()
{
    listing = listFolder(saveFolder());
    QSet<QUrl> listed;
    listed.reserve(listing.size());
    for (const ClipEntry& clip : listing)
        listed.insert(clip.id);
    thumbnailer->prune(listed);
    emit clipsChanged();
}

void ClipsScreenModel::startRename(const QUrl& clip)
{
    renaming = clip;
    renameBuffer = QFileInfo(clip.toLocalFile()).completeBaseName();
    emit editingChanged();
}

void ClipsScreenModel::setRenameText(const QString& text)
{
    renameBuffer = text;
}

void ClipsScreenModel::cancelRename()
{
    if (!renaming) return;
    renaming.reset();
    emit editingChanged();
}

void ClipsScreenModel::commitRename(const QUrl& clip)
{
    const QString path = clip.toLocalFile();
    const std::optional<QString> target = ClipEdits::renameTarget(path, renameBuffer);
    renaming.reset();
    emit editingChanged();
    if (!target) return;
    if (QFileInfo(*target).fileName().startsWith(u'.')) {
        // Such a name hides the clip from every listing, the file manager's included.
        toast(QStringLiteral("Couldn't rename: a clip's name can't begin with a dot."));
        return;
    }
    if (QFileInfo::exists(*target) || QFileInfo(*target).isSymLink()) {
        toast(QStringLiteral("A clip already has that name."));
        return;
    }
    QFile file(path);
    if (!file.rename(*target)) {
        toast(QStringLiteral("Couldn't rename: ") + file.errorString());
        return;
    }
    scanClips();
}

void ClipsScreenModel::deleteClip(const QUrl& clip)
{
    DesktopIntegration* desktop = models.desktop;
    const std::optional<QString> error
        = desktop ? desktop->moveToTrash(clip.toLocalFile()) : QStringLiteral("no desktop to hold a trash");
    if (error) {
        toast(QStringLiteral("Couldn't move to Trash: ") + *error);
        return;
    }
    scanClips();
}

void ClipsScreenModel::openClip(const QUrl& clip)
{
    DesktopIntegration* desktop = models.desktop;
    if (!desktop || !desktop->open(clip.toLocalFile()))
        toast(QStringLiteral("Couldn't open: no application is set to play ") + clip.fileName());
}

void ClipsScreenModel::revealClip(const QUrl& clip)
{
    if (DesktopIntegration* desktop = models.desktop) desktop->revealInFileManager(clip.toLocalFile());
}

void ClipsScreenModel::openSaveFolder()
{
    DesktopIntegration* desktop = models.desktop;
    if (!desktop || !desktop->open(saveFolder()))
        toast(QStringLiteral("Couldn't open: no file manager is set to show ") + saveFolder());
}

void ClipsScreenModel::copyClip(const QUrl& clip)
{
    auto* data = new QMimeData;
    data->setUrls({ clip });
    // What GNOME's file manager and the ones that follow it (Nemo, Caja, Thunar) read as copied files.
    data->setData(QStringLiteral("x-special/gnome-copied-files"), "copy\n" + clip.toEncoded());
    QGuiApplication::clipboard()->setMimeData(data);
    toast(QStringLiteral("Copied: ") + clip.fileName());
}

void ClipsScreenModel::copyPath(const QUrl& clip)
{
    QGuiApplication::clipboard()->setText(clip.toLocalFile());
    toast(QStringLiteral("Copied: ") + clip.toLocalFile());
}

const ::ClipEntry* ClipsScreenModel::journalEntry(const QUrl& clip) const
{
    const QList<::ClipEntry>& entries = models.journal->clips();
    if (journalIndexStale) {
        journalIndex.clear();
        journalIndex.reserve(entries.size());
        for (qsizetype i = entries.size() - 1; i >= 0; --i)
            journalIndex.insert(entries[i].url, i);
        journalIndexStale = false;
    }
    const auto found = journalIndex.constFind(clip);
    if (found == journalIndex.constEnd() || *found >= entries.size()) return nullptr;
    return &entries[*found];
}

ClipMeta ClipsScreenModel::meta(const QUrl& clip) const
{
    if (const ::ClipEntry* entry = journalEntry(clip)) return entry->meta;
    return ClipMetaStore::load(clip);
}

void ClipsScreenModel::applyMeta(const QUrl& clip, const ClipMeta& meta)
{
    ClipJournalStore* journal = models.journal;
    if (const ::ClipEntry* entry = journalEntry(clip)) {
        // A copy: the store replaces the element that `entry` points at.
        // The store tells of the change itself.
        if (const auto failed = journal->update(::ClipEntry(*entry), meta))
            toast(QStringLiteral("Couldn't save the tags: ") + failed->text);
        return;
    }
    if (const auto failed = ClipMetaStore::save(meta, clip)) {
        toast(QStringLiteral("Couldn't save the tags: ") + failed->text);
        return;
    }
    QMetaObject::invokeMethod(journal, &ClipJournalStore::rescan, Qt::QueuedConnection);
    emit metaChanged();
}

QStringList ClipsScreenModel::knownTags() const
{
    if (tagsStale) {
        tagsKnown = JournalFilter::tags(models.journal->clips());
        tagsStale = false;
    }
    return tagsKnown;
}

QList<ClipTrade> ClipsScreenModel::tradesWithoutClip() const
{
    QList<ClipTrade> trades = models.journal->tradesWithoutClip();
    std::stable_sort(
        trades.begin(), trades.end(), [](const ClipTrade& a, const ClipTrade& b) { return a.exitTime > b.exitTime; });
    return trades;
}

bool ClipsScreenModel::importTrades(const QString& csvPath)
{
    const QString folder = saveFolder();
    return jobs->start(
        QStringLiteral("import"), [csvPath, folder] { return TradeImporter::importFile(csvPath, folder); },
        [this](const TradeImporter::Report& report) {
            if (!report.imported) {
                const QString text = QStringLiteral("Couldn't import trades: ") + report.error;
                toast(text);
                emit importFinished(text, {});
                return;
            }
            // A failed sidecar or a guessed encoding must not pass unseen: the first such note goes
            // with the summary, the rest are counted.
            QString text = report.summary;
            if (!report.notes.isEmpty()) {
                text += QStringLiteral(". ") + report.notes.front();
                if (report.notes.size() > 1) text += QStringLiteral(" (and %1 more)").arg(report.notes.size() - 1);
            }
            toast(text);
            models.journal->rescan();
            emit importFinished(text, report.notes + report.skippedRows);
        });
}

bool ClipsScreenModel::isImporting() const
{
    return jobs->isRunning(QStringLiteral("import"));
}

void ClipsScreenModel::toggleJournal(const QUrl& clip)
{
    if (expanded == clip)
        expanded.reset();
    else
        expanded = clip;
    emit editingChanged();
}

void ClipsScreenModel::setHovered(const QUrl& clip, bool inside)
{
    if (inside) {
        if (hovered == clip) return;
        hovered = clip;
    } else {
        if (hovered != clip) return;
        hovered.reset();
    }
    emit hoveredChanged();
}

void ClipsScreenModel::trimThumbnails(const QList<QUrl>& near)
{
    if (thumbnailer->cachedCount() <= thumbnailsKept) return;
    thumbnailer->prune(QSet<QUrl>(near.begin(), near.end()));
}

void ClipsScreenModel::toast(const QString& text)
{
    models.actions->showToast(text);
}
