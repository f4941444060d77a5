#include "journal/ClipJournalStore.h"

#include "core/KeyedJobs.h"
#include "core/LocalFileName.h"
#include "journal/ClipMetaStore.h"
#include "journal/ClipNameParser.h"
#include "journal/JournalTradesFile.h"

#include <QDir>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <set>
#include <strings.h>
#include <sys/stat.h>
#include <vector>

namespace {

const QString scanJob = QStringLiteral("rescan");

bool hasClipExtension(const char* name, size_t length)
{
    return length > 4 && name[length - 4] == '.' && ::strncasecmp(name + length - 3, "mp4", 3) == 0;
}

// The names of the folder's clips, sorted: flat, names that begin with a dot skipped, ".mp4" in any
// case, and only regular files (or links to them): a folder or a FIFO is no clip. Names are read as
// bytes, so that one that is not UTF-8 still names its file. Nothing when the folder can't be read.
std::optional<QStringList> listClipNames(const QString& folder)
{
    DIR* opened = ::opendir(LocalFileName::encode(folder).constData());
    if (!opened) return std::nullopt;
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opened, &::closedir);
    QStringList names;
    while (const dirent* entry = ::readdir(dir.get())) {
        const size_t length = std::strlen(entry->d_name);
        if (entry->d_name[0] == '.' || !hasClipExtension(entry->d_name, length)) continue;
        bool regular = entry->d_type == DT_REG;
        if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) {
            struct stat info { };
            regular = ::fstatat(::dirfd(dir.get()), entry->d_name, &info, 0) == 0 && S_ISREG(info.st_mode);
        }
        if (regular) names << LocalFileName::decode(QByteArray(entry->d_name, qsizetype(length)));
    }
    // In the same order on every run, so that clips of equal date keep one order.
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

ClipJournalStore::ClipJournalStore(std::optional<QUrl> savePath, QObject* parent)
    : QObject(parent)
    , savePathValue(std::move(savePath))
    , watcher(new QFileSystemWatcher(this))
    , settle(new QTimer(this))
    , jobs(new KeyedJobs(1, this))
{
    settle->setSingleShot(true);
    settle->setInterval(settleMilliseconds);
    connect(settle, &QTimer::timeout, this, &ClipJournalStore::rescanInBackground);
    connect(watcher, &QFileSystemWatcher::directoryChanged, this, &ClipJournalStore::changedOnDisk);
    connect(watcher, &QFileSystemWatcher::fileChanged, this, &ClipJournalStore::changedOnDisk);
    scheduleRescan();
}

void ClipJournalStore::setSavePath(std::optional<QUrl> path)
{
    savePathValue = std::move(path);
    ++generation;
    emit savePathChanged();
    scheduleRescan();
}

void ClipJournalStore::setDisplayUnit(PnLUnit unit)
{
    displayUnitValue = unit;
    emit displayUnitChanged();
}

void ClipJournalStore::setFilter(const JournalFilter& filter)
{
    if (filter == filterValue) return;
    filterValue = filter;
    emit filterChanged();
}

void ClipJournalStore::scheduleRescan()
{
    // Queued on this object's thread: it runs after the current assignment has finished, and not at
    // all if the store is gone by then.
    QMetaObject::invokeMethod(this, &ClipJournalStore::rescan, Qt::QueuedConnection);
}

QString ClipJournalStore::folderPath() const
{
    return savePathValue ? savePathValue->toLocalFile() : QString();
}

void ClipJournalStore::rescan()
{
    Scan found = scan(folderPath());
    ++generation;
    clipList = std::move(found.clips);
    withoutClipList = std::move(found.withoutClip);
    watch(found.sidecars);
    emit clipsChanged();
}

void ClipJournalStore::watch(const QStringList& sidecars)
{
    const QString folder = folderPath();
    QStringList wanted;
    if (!folder.isEmpty() && QFileInfo(folder).isDir()) {
        wanted << QDir::cleanPath(folder);
        wanted << sidecars.mid(0, maxWatchedSidecars);
    }
    const QStringList watched = watchedPaths();
    const QSet<QString> keep(wanted.begin(), wanted.end());
    QSet<QString> have(watched.begin(), watched.end());
    QStringList gone;
    for (const QString& path : watched)
        if (!keep.contains(path)) gone << path;
    QStringList added;
    // Two clips that differ only in extension share a sidecar: each path once.
    for (const QString& path : wanted)
        if (!have.contains(path)) {
            have.insert(path);
            added << path;
        }
    if (!gone.isEmpty()) watcher->removePaths(gone);
    // A path that cannot be watched (the limit of watches reached) is simply not followed: the
    // folder's own watch and the journal screen's rescan on showing still catch up.
    if (!added.isEmpty()) watcher->addPaths(added);
}

QStringList ClipJournalStore::watchedPaths() const
{
    return watcher->directories() + watcher->files();
}

void ClipJournalStore::changedOnDisk()
{
    if (jobs->isRunning(scanJob)) changedDuringScan = true;
    // Each change restarts the wait, but a folder that never falls quiet (a program rewriting a
    // sidecar over and over) is still read at least every so often.
    if (!settle->isActive()) {
        unsettled.start();
    } else if (unsettled.elapsed() >= maxSettleMilliseconds) {
        return;
    }
    settle->start();
}

void ClipJournalStore::rescanInBackground()
{
    const QString folder = folderPath();
    const quint64 startedAt = generation;
    changedDuringScan = false;
    const bool started = jobs->start(
        scanJob, [folder] { return scan(folder); },
        [this, folder, startedAt](Scan found) {
            if (changedDuringScan) {
                // What was read may already be old: read once more when the folder is quiet.
                changedDuringScan = false;
                settle->start();
            }
            if (generation != startedAt || folder != folderPath()) return;
            watch(found.sidecars);
            if (found.clips == clipList && found.withoutClip == withoutClipList) return;
            ++generation;
            clipList = std::move(found.clips);
            withoutClipList = std::move(found.withoutClip);
            emit clipsChanged();
        });
    // One scan at a time: the one under way was started before this change, so another follows it.
    if (!started) changedDuringScan = true;
}

ClipJournalStore::Scan ClipJournalStore::scan(const QString& folder)
{
    if (folder.isEmpty()) return {};
    const std::optional<QStringList> names = listClipNames(folder);
    if (!names) return {};
    const QDir dir(folder);

    struct Dated {
        double date;
        ClipEntry entry;
        QString sidecar; // when there is one
    };
    std::vector<Dated> dated;
    dated.reserve(static_cast<size_t>(names->size()));
    // A trade is a sidecar: clips that share one (a.mp4 and a.MP4, or names that a file system
    // which ignores case takes for one) are one entry, the first by name.
    QSet<QString> sidecarPaths;
    std::set<std::pair<quint64, quint64>> sidecarFiles;
    for (const QString& name : *names) {
        ClipEntry entry;
        entry.url = QUrl::fromLocalFile(dir.filePath(name));
        const QString sidecarPath = ClipMetaStore::sidecarPath(entry.url);
        if (sidecarPaths.contains(sidecarPath)) continue;
        sidecarPaths.insert(sidecarPath);
        ClipMetaStore::Sidecar sidecar = ClipMetaStore::read(entry.url);
        if (sidecar.inode != 0 && !sidecarFiles.insert({ sidecar.device, sidecar.inode }).second) continue;
        const ClipNameParser::Parsed parsed = ClipNameParser::parse(entry.url);
        entry.parsedDate = parsed.date;
        entry.parsedTicker = parsed.ticker;
        entry.meta = std::move(sidecar.meta);
        // The date is taken once per entry: a clip without any date sorts by "now", and asking the
        // clock inside the comparison would not give a consistent order.
        const double date = entry.date();
        const bool hasSidecar = sidecar.state != ClipMetaStore::Sidecar::State::absent;
        dated.push_back({ date, std::move(entry), hasSidecar ? QDir::cleanPath(sidecarPath) : QString() });
    }
    std::stable_sort(dated.begin(), dated.end(), [](const Dated& a, const Dated& b) { return a.date > b.date; });

    Scan found;
    // A trades file that can't be read counts as none; the import says so and leaves it alone.
    found.withoutClip = JournalTradesFile::load(folder).trades;
    found.clips.reserve(static_cast<qsizetype>(dated.size()));
    for (Dated& d : dated) {
        if (!d.sidecar.isEmpty()) found.sidecars << d.sidecar;
        found.clips.push_back(std::move(d.entry));
    }
    return found;
}

std::optional<ClipMetaStore::SaveFailure> ClipJournalStore::update(const ClipEntry& entry, const ClipMeta& meta)
{
    if (auto failed = ClipMetaStore::save(meta, entry.url)) return failed;
    const auto found = std::find(clipList.begin(), clipList.end(), entry);
    if (found == clipList.end()) return std::nullopt;
    found->meta = meta;
    emit clipsChanged();
    return std::nullopt;
}

void ClipJournalStore::reload(const QUrl& clip)
{
    const auto found
        = std::find_if(clipList.begin(), clipList.end(), [&](const ClipEntry& entry) { return entry.url == clip; });
    if (found == clipList.end()) {
        rescan();
        return;
    }
    ClipMeta meta = ClipMetaStore::load(clip);
    if (meta == found->meta) return;
    found->meta = std::move(meta);
    emit clipsChanged();
}
