#include "journal/ClipMetaStore.h"

#include "core/LocalFileName.h"
#include "journal/ClipNameParser.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QSet>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <variant>

namespace ClipMetaStore {

namespace {

// The keys this program reads; any other key of a sidecar is kept as it was in otherFields.
constexpr std::array knownKeys { "outcome", "pnl", "unit", "notes", "mistakes", "ticker", "date", "monitorRect",
    "recordedSize", "sourcePointSize", "tagOrigin", "trades", "tags" };

// A record that cannot be changed without another writer noticing is read and written again; a
// sidecar rewritten this often in the meantime is being fought over, and the change gives up.
constexpr int changeAttempts = 5;

// Closes the descriptor however the work ends.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd)
        : fd(fd)
    {
    }
    ~FileDescriptor()
    {
        if (fd >= 0) ::close(fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd; }
    // Closes now, for the error a full disk may report only at close.
    bool close()
    {
        const int closing = fd;
        fd = -1;
        return ::close(closing) == 0;
    }

private:
    int fd;
};

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

QString shown(const QString& path)
{
    return LocalFileName::printable(path);
}

std::optional<QString> requiredString(const QJsonObject& object, QLatin1StringView key)
{
    const QJsonValue value = object.value(key);
    if (!value.isString()) return std::nullopt;
    return value.toString();
}

// Absent and null both mean "no value"; any other type than the expected one fails the record.
enum class Presence { absent, present, wrongType };

Presence optionalNumber(const QJsonObject& object, QLatin1StringView key, std::optional<double>& out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) return Presence::absent;
    if (!value.isDouble()) return Presence::wrongType;
    out = value.toDouble();
    return Presence::present;
}

// [a, b] of two numbers.
std::optional<std::pair<double, double>> numberPair(const QJsonValue& value)
{
    if (!value.isArray()) return std::nullopt;
    const QJsonArray array = value.toArray();
    if (array.size() != 2 || !array.at(0).isDouble() || !array.at(1).isDouble()) return std::nullopt;
    return std::pair(array.at(0).toDouble(), array.at(1).toDouble());
}

Presence optionalSize(const QJsonObject& object, QLatin1StringView key, std::optional<QSizeF>& out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) return Presence::absent;
    const auto pair = numberPair(value);
    if (!pair) return Presence::wrongType;
    out = QSizeF(pair->first, pair->second);
    return Presence::present;
}

Presence optionalRect(const QJsonObject& object, QLatin1StringView key, std::optional<QRectF>& out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) return Presence::absent;
    if (!value.isArray() || value.toArray().size() != 2) return Presence::wrongType;
    const auto origin = numberPair(value.toArray().at(0));
    const auto size = numberPair(value.toArray().at(1));
    if (!origin || !size) return Presence::wrongType;
    out = QRectF(origin->first, origin->second, size->first, size->second);
    return Presence::present;
}

QJsonArray pairArray(double a, double b)
{
    return QJsonArray { a, b };
}

// The tag's origin, the broker's trades and the setup tags: each key only when it has something.
bool decodeImportFields(const QJsonObject& object, ClipMeta& meta)
{
    const QJsonValue origin = object.value(QLatin1StringView("tagOrigin"));
    if (origin.isString()) {
        meta.tagOrigin = tagOriginFromRaw(origin.toString());
        if (!meta.tagOrigin) return false;
    } else if (!origin.isUndefined() && !origin.isNull()) {
        return false;
    }
    const QJsonValue trades = object.value(QLatin1StringView("trades"));
    if (trades.isArray()) {
        for (const QJsonValue& value : trades.toArray()) {
            const auto trade = ClipTrade::fromJson(value);
            if (!trade) return false;
            meta.trades.push_back(*trade);
        }
    } else if (!trades.isUndefined() && !trades.isNull()) {
        return false;
    }
    const QJsonValue tags = object.value(QLatin1StringView("tags"));
    if (tags.isArray()) {
        for (const QJsonValue& value : tags.toArray()) {
            if (!value.isString()) return false;
            meta.tags.push_back(value.toString());
        }
    } else if (!tags.isUndefined() && !tags.isNull()) {
        return false;
    }
    return true;
}

void encodeImportFields(const ClipMeta& meta, QJsonObject& object)
{
    if (meta.tagOrigin) object.insert(QLatin1StringView("tagOrigin"), rawValue(*meta.tagOrigin));
    if (!meta.trades.isEmpty()) {
        QJsonArray trades;
        for (const ClipTrade& trade : meta.trades)
            trades.append(trade.toJson());
        object.insert(QLatin1StringView("trades"), trades);
    }
    if (!meta.tags.isEmpty()) object.insert(QLatin1StringView("tags"), QJsonArray::fromStringList(meta.tags));
}

// The record, or what keeps the bytes from being one, in words.
std::variant<ClipMeta, QString> decodeOrSay(const QByteArray& json)
{
    QJsonParseError error {};
    QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error == QJsonParseError::IllegalUTF8String) {
        // Bytes that are not UTF-8 inside a text (notes pasted from another encoding) cost those
        // bytes, which become U+FFFD, and not the whole trade.
        document = QJsonDocument::fromJson(QString::fromUtf8(json).toUtf8(), &error);
    }
    if (error.error != QJsonParseError::NoError) {
        return QStringLiteral("is not valid JSON (%1 at byte %2)").arg(error.errorString()).arg(error.offset);
    }
    if (!document.isObject()) return QStringLiteral("does not hold a JSON object");
    const QJsonObject object = document.object();
    const auto wrong
        = [](const char* key) { return QStringLiteral("has no usable \"%1\"").arg(QLatin1StringView(key)); };

    ClipMeta meta;
    const auto outcome = requiredString(object, QLatin1StringView("outcome"));
    if (!outcome) return wrong("outcome");
    const auto unit = requiredString(object, QLatin1StringView("unit"));
    if (!unit) return wrong("unit");
    const auto notes = requiredString(object, QLatin1StringView("notes"));
    if (!notes) return wrong("notes");
    const auto mistakes = requiredString(object, QLatin1StringView("mistakes"));
    if (!mistakes) return wrong("mistakes");
    const auto outcomeValue = tradeOutcomeFromRaw(*outcome);
    if (!outcomeValue) return QStringLiteral("has an unknown \"outcome\" \"%1\"").arg(*outcome);
    const auto unitValue = pnlUnitFromRaw(*unit);
    if (!unitValue) return QStringLiteral("has an unknown \"unit\" \"%1\"").arg(*unit);
    meta.outcome = *outcomeValue;
    meta.unit = *unitValue;
    meta.notes = *notes;
    meta.mistakes = *mistakes;

    const QJsonValue ticker = object.value(QLatin1StringView("ticker"));
    if (ticker.isString()) {
        meta.ticker = ticker.toString();
    } else if (!ticker.isUndefined() && !ticker.isNull()) {
        return wrong("ticker");
    }
    if (optionalNumber(object, QLatin1StringView("pnl"), meta.pnl) == Presence::wrongType) return wrong("pnl");
    if (optionalNumber(object, QLatin1StringView("date"), meta.date) == Presence::wrongType) return wrong("date");
    if (optionalRect(object, QLatin1StringView("monitorRect"), meta.monitorRect) == Presence::wrongType) {
        return wrong("monitorRect");
    }
    if (optionalSize(object, QLatin1StringView("recordedSize"), meta.recordedSize) == Presence::wrongType) {
        return wrong("recordedSize");
    }
    if (optionalSize(object, QLatin1StringView("sourcePointSize"), meta.sourcePointSize) == Presence::wrongType) {
        return wrong("sourcePointSize");
    }
    if (!decodeImportFields(object, meta))
        return QStringLiteral("has an unusable \"tagOrigin\", \"trades\" or \"tags\"");
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString key = it.key();
        const bool known = std::any_of(
            knownKeys.begin(), knownKeys.end(), [&](const char* k) { return key == QLatin1StringView(k); });
        if (!known) meta.otherFields.insert(key, it.value());
    }
    // An amount beyond any account reads as no amount; the rest of the record stands. The amount
    // as written is kept with the fields of others, so that saving the record does not drop it
    // and detection does not take the clip for untagged.
    if (meta.pnl && !ClipMeta::isPlausiblePnL(*meta.pnl)) {
        meta.otherFields.insert(QStringLiteral("pnl"), *meta.pnl);
        meta.pnl.reset();
    }
    return meta;
}

// What read() finds, and the file's permissions for its successor.
struct Inspected {
    Sidecar sidecar;
    mode_t mode = 0;
};

// Looks at the sidecar's place without following a link and without opening anything that is not
// a regular file (a FIFO would block, a device may act on being opened).
Inspected inspect(const QString& path)
{
    const QByteArray native = LocalFileName::encode(path);
    Inspected found;
    Sidecar& sidecar = found.sidecar;
    const auto unusable = [&](const QString& why) {
        sidecar.state = Sidecar::State::unusable;
        sidecar.problem = shown(path) + QLatin1Char(' ') + why;
        return found;
    };
    struct stat link { };
    if (::lstat(native.constData(), &link) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return found;
        return unusable(QStringLiteral("cannot be examined (%1)").arg(systemError(errno)));
    }
    sidecar.device = link.st_dev;
    sidecar.inode = link.st_ino;
    if (S_ISLNK(link.st_mode)) return unusable(QStringLiteral("is a symbolic link"));
    if (!S_ISREG(link.st_mode)) return unusable(QStringLiteral("is not a regular file"));
    if (link.st_size > maxSidecarBytes) {
        return unusable(QStringLiteral("is larger than %1 bytes").arg(maxSidecarBytes));
    }

    FileDescriptor file(::open(native.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW));
    if (file.get() < 0) {
        if (errno == ENOENT) return Inspected {};
        return unusable(QStringLiteral("cannot be read (%1)").arg(systemError(errno)));
    }
    struct stat info { };
    if (::fstat(file.get(), &info) != 0) return unusable(QStringLiteral("cannot be read (%1)").arg(systemError(errno)));
    // Replaced between the look and the open: judged by what was opened.
    if (!S_ISREG(info.st_mode)) return unusable(QStringLiteral("is not a regular file"));
    sidecar.device = info.st_dev;
    sidecar.inode = info.st_ino;
    found.mode = info.st_mode & 07777;
    // Read one byte past the limit, so that a file that grew after fstat is still refused.
    QByteArray bytes(static_cast<qsizetype>(std::min<qint64>(info.st_size, maxSidecarBytes)) + 1, Qt::Uninitialized);
    qsizetype filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = ::read(file.get(), bytes.data() + filled, static_cast<size_t>(bytes.size() - filled));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return unusable(QStringLiteral("cannot be read (%1)").arg(systemError(errno)));
        if (got == 0) break;
        filled += got;
        if (filled > maxSidecarBytes) {
            return unusable(QStringLiteral("is larger than %1 bytes").arg(maxSidecarBytes));
        }
    }
    bytes.truncate(filled);
    auto decoded = decodeOrSay(bytes);
    if (const QString* why = std::get_if<QString>(&decoded)) return unusable(*why);
    sidecar.state = Sidecar::State::record;
    sidecar.meta = std::move(std::get<ClipMeta>(decoded));
    return found;
}

SaveFailure failure(SaveFailure::Reason reason, QString text)
{
    return { reason, std::move(text) };
}

// Whether the new file reaches the disk before writeBeside returns, or later with others.
enum class Flush { now, later };

// Writes `bytes` to a new file beside `path`, with the given permissions (the umask applies),
// and returns its name, or the failure.
std::variant<QByteArray, SaveFailure> writeBeside(
    const QString& path, const QByteArray& bytes, mode_t mode, Flush flush = Flush::now)
{
    const qsizetype slash = path.lastIndexOf(u'/');
    // Hidden, so that a listing of the folder does not take it for anything.
    const QString prefix = path.left(slash + 1) + QLatin1Char('.') + path.mid(slash + 1) + QLatin1Char('.');
    const auto failed = [&](int error) {
        return failure(SaveFailure::Reason::writeFailed,
            QStringLiteral("%1 could not be written (%2)").arg(shown(path), systemError(error)));
    };
    for (int attempt = 0; attempt < 8; ++attempt) {
        const QByteArray temporary
            = LocalFileName::encode(prefix) + QByteArray::number(QRandomGenerator::global()->generate64(), 36);
        FileDescriptor file(
            ::open(temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, mode));
        if (file.get() < 0) {
            if (errno == EEXIST) continue;
            return failed(errno);
        }
        const auto discard = [&](int error) {
            ::unlink(temporary.constData());
            return failed(error);
        };
        qsizetype written = 0;
        while (written < bytes.size()) {
            const ssize_t n = ::write(file.get(), bytes.constData() + written, size_t(bytes.size() - written));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return discard(n < 0 ? errno : ENOSPC);
            written += n;
        }
        // On the disk before the name points at it: a crash leaves the old sidecar or the new one.
        if (flush == Flush::now && ::fsync(file.get()) != 0) return discard(errno);
        if (!file.close()) return discard(errno);
        return temporary;
    }
    return failed(EEXIST);
}

std::optional<SaveFailure> changedMeanwhile(const QString& path)
{
    return failure(SaveFailure::Reason::changed, QStringLiteral("%1 was changed meanwhile").arg(shown(path)));
}

// Gives the written file the sidecar's name, once more looking just before the rename, which
// replaces whatever has the name by then: what another writer put there while the new file was
// written is not replaced unseen. The new file is gone when it fails.
std::optional<SaveFailure> putInPlace(
    const QByteArray& temporary, const QString& path, const std::optional<ClipMeta>& expected)
{
    const Inspected now = inspect(path);
    std::optional<SaveFailure> refused;
    if (now.sidecar.state == Sidecar::State::unusable) {
        refused = failure(SaveFailure::Reason::unusable, now.sidecar.problem);
    } else if (expected && now.sidecar.meta != *expected) {
        refused = changedMeanwhile(path);
    } else if (::rename(temporary.constData(), LocalFileName::encode(path).constData()) != 0) {
        refused = failure(SaveFailure::Reason::writeFailed,
            QStringLiteral("%1 could not be written (%2)").arg(shown(path), systemError(errno)));
    } else {
        return std::nullopt;
    }
    ::unlink(temporary.constData());
    return refused;
}

// The permissions for the file that will take the sidecar's place (those of a regular file there,
// else the usual ones), or why nothing may: the same things inspect() refuses without reading.
std::variant<mode_t, SaveFailure> glance(const QString& path)
{
    struct stat link { };
    if (::lstat(LocalFileName::encode(path).constData(), &link) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return mode_t(0666);
        return failure(SaveFailure::Reason::unusable,
            QStringLiteral("%1 cannot be examined (%2)").arg(shown(path), systemError(errno)));
    }
    const auto unusable = [&](const QString& why) {
        return failure(SaveFailure::Reason::unusable, shown(path) + QLatin1Char(' ') + why);
    };
    if (S_ISLNK(link.st_mode)) return unusable(QStringLiteral("is a symbolic link"));
    if (!S_ISREG(link.st_mode)) return unusable(QStringLiteral("is not a regular file"));
    if (link.st_size > maxSidecarBytes) return unusable(QStringLiteral("is larger than %1 bytes").arg(maxSidecarBytes));
    return mode_t(link.st_mode & 07777);
}

} // namespace

QString sidecarPath(const QUrl& clip)
{
    // The name depends on the stem only: two clips that differ only in extension share a sidecar.
    const QString path = clip.toLocalFile();
    const qsizetype slash = path.lastIndexOf(u'/');
    return path.left(slash + 1) + ClipNameParser::stem(path.mid(slash + 1)) + QStringLiteral(".clipmeta.json");
}

std::optional<ClipMeta> decode(const QByteArray& json)
{
    auto decoded = decodeOrSay(json);
    if (ClipMeta* meta = std::get_if<ClipMeta>(&decoded)) return std::move(*meta);
    return std::nullopt;
}

std::optional<QByteArray> encode(const ClipMeta& meta)
{
    // JSON has no NaN or infinity; such a record is not written at all rather than written wrong.
    bool finite = true;
    const auto number = [&finite](double value) {
        if (!std::isfinite(value)) finite = false;
        return value;
    };

    // The fields of others first: a key this program knows is always written from the record.
    QJsonObject object = meta.otherFields;
    object.insert(QLatin1StringView("outcome"), rawValue(meta.outcome));
    object.insert(QLatin1StringView("unit"), rawValue(meta.unit));
    object.insert(QLatin1StringView("notes"), meta.notes);
    object.insert(QLatin1StringView("mistakes"), meta.mistakes);
    if (meta.pnl) object.insert(QLatin1StringView("pnl"), number(*meta.pnl));
    if (meta.ticker) object.insert(QLatin1StringView("ticker"), *meta.ticker);
    if (meta.date) object.insert(QLatin1StringView("date"), number(*meta.date));
    if (const auto& r = meta.monitorRect) {
        object.insert(QLatin1StringView("monitorRect"),
            QJsonArray {
                pairArray(number(r->x()), number(r->y())), pairArray(number(r->width()), number(r->height())) });
    }
    if (const auto& s = meta.recordedSize) {
        object.insert(QLatin1StringView("recordedSize"), pairArray(number(s->width()), number(s->height())));
    }
    if (const auto& s = meta.sourcePointSize) {
        object.insert(QLatin1StringView("sourcePointSize"), pairArray(number(s->width()), number(s->height())));
    }
    encodeImportFields(meta, object);
    if (!finite) return std::nullopt;
    // QJsonObject keeps its keys sorted, which gives the sorted order on disk.
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

Sidecar read(const QUrl& clip)
{
    return inspect(sidecarPath(clip)).sidecar;
}

ClipMeta load(const QUrl& clip)
{
    return read(clip).meta;
}

std::optional<SaveFailure> save(const ClipMeta& meta, const QUrl& clip, const std::optional<ClipMeta>& expected)
{
    const QString path = sidecarPath(clip);
    const Inspected before = inspect(path);
    if (before.sidecar.state == Sidecar::State::unusable) {
        return failure(SaveFailure::Reason::unusable, before.sidecar.problem);
    }
    if (expected && before.sidecar.meta != *expected) return changedMeanwhile(path);

    if (meta.isEmpty()) {
        // Usually there was no sidecar to remove; that is fine.
        if (before.sidecar.state == Sidecar::State::absent) return std::nullopt;
        if (::unlink(LocalFileName::encode(path).constData()) != 0 && errno != ENOENT) {
            return failure(SaveFailure::Reason::writeFailed,
                QStringLiteral("%1 could not be removed (%2)").arg(shown(path), systemError(errno)));
        }
        return std::nullopt;
    }

    const auto bytes = encode(meta);
    if (!bytes) {
        return failure(SaveFailure::Reason::notEncodable,
            QStringLiteral("%1 was not written: a number in the record is not finite").arg(shown(path)));
    }
    // A replaced sidecar keeps its permissions; a new one gets the usual ones under the umask.
    const mode_t mode = before.sidecar.state == Sidecar::State::record ? before.mode : 0666;
    auto written = writeBeside(path, *bytes, mode);
    if (SaveFailure* failed = std::get_if<SaveFailure>(&written)) return std::move(*failed);
    return putInPlace(std::get<QByteArray>(written), path, expected);
}

SavedAll saveAll(const std::vector<Pending>& records)
{
    SavedAll result;
    result.failures.resize(records.size());
    struct Written {
        size_t record;
        QString path;
        QByteArray temporary;
    };
    std::vector<Written> written;
    written.reserve(records.size());
    const auto folderOf = [](const QString& path) { return path.left(std::max<qsizetype>(path.lastIndexOf(u'/'), 1)); };
    // The folders that got new names, each once, flushed at the end.
    QStringList changedFolders;
    QSet<QString> changed;
    const auto folderChanged = [&](const QString& path) {
        const QString folder = folderOf(path);
        if (!changed.contains(folder)) {
            changed.insert(folder);
            changedFolders << folder;
        }
    };

    for (size_t i = 0; i < records.size(); ++i) {
        const Pending& r = records[i];
        const QString path = sidecarPath(r.clip);
        if (r.meta.isEmpty()) {
            // A removal writes nothing new; it needs no batch.
            result.failures[i] = save(r.meta, r.clip, r.expected);
            if (!result.failures[i]) folderChanged(path);
            continue;
        }
        const auto bytes = encode(r.meta);
        if (!bytes) {
            result.failures[i] = failure(SaveFailure::Reason::notEncodable,
                QStringLiteral("%1 was not written: a number in the record is not finite").arg(shown(path)));
            continue;
        }
        // Only a look at what has the name, for the new file's permissions: the record in it is
        // compared just before the rename, the check that counts.
        const auto place = glance(path);
        if (const SaveFailure* refused = std::get_if<SaveFailure>(&place)) {
            result.failures[i] = *refused;
            continue;
        }
        auto made = writeBeside(path, *bytes, std::get<mode_t>(place), Flush::later);
        if (SaveFailure* failed = std::get_if<SaveFailure>(&made)) {
            result.failures[i] = std::move(*failed);
            continue;
        }
        written.push_back({ i, path, std::move(std::get<QByteArray>(made)) });
    }

    // Every new file on the disk before any name points at it: one flush of each file system the
    // files are on, or, when that fails, each file on its own, so that the one that fails is named.
    QSet<QString> flushedFolders;
    bool flushed = true;
    for (const Written& w : written) {
        const QString folder = folderOf(w.path);
        if (!flushed || flushedFolders.contains(folder)) continue;
        flushedFolders.insert(folder);
        FileDescriptor dir(::open(LocalFileName::encode(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        flushed = dir.get() >= 0 && ::syncfs(dir.get()) == 0;
    }
    if (!flushed) {
        for (Written& w : written) {
            FileDescriptor file(::open(w.temporary.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
            if (file.get() >= 0 && ::fsync(file.get()) == 0) continue;
            result.failures[w.record] = failure(SaveFailure::Reason::writeFailed,
                QStringLiteral("%1 could not be written (%2)").arg(shown(w.path), systemError(errno)));
            ::unlink(w.temporary.constData());
            w.temporary.clear();
        }
    }

    for (const Written& w : written) {
        if (w.temporary.isEmpty()) continue;
        result.failures[w.record] = putInPlace(w.temporary, w.path, records[w.record].expected);
        if (!result.failures[w.record]) folderChanged(w.path);
    }
    // The new names, which live in the folders.
    for (const QString& folder : changedFolders) {
        FileDescriptor dir(::open(LocalFileName::encode(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (dir.get() < 0 || ::fsync(dir.get()) != 0) {
            result.unflushed
                = QStringLiteral("%1 could not be flushed to the disk (%2)").arg(shown(folder), systemError(errno));
        }
    }
    return result;
}

Changed change(const QUrl& clip, const std::function<std::optional<ClipMeta>(const ClipMeta& current)>& change)
{
    Changed result;
    for (int attempt = 0; attempt < changeAttempts; ++attempt) {
        const Sidecar current = read(clip);
        if (current.state == Sidecar::State::unusable) {
            result.failure = failure(SaveFailure::Reason::unusable, current.problem);
            return result;
        }
        std::optional<ClipMeta> next = change(current.meta);
        if (!next) {
            result.status = Changed::Status::declined;
            result.meta = current.meta;
            return result;
        }
        result.failure = save(*next, clip, current.meta);
        if (!result.failure) {
            result.status = Changed::Status::written;
            result.meta = std::move(*next);
            return result;
        }
        if (result.failure->reason != SaveFailure::Reason::changed) return result;
    }
    return result;
}

} // namespace ClipMetaStore
