#include "journal/ClipMetaStore.h"

#include "journal/ClipNameParser.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ClipMetaStore {

namespace {

// Closes the descriptor when the read is done, however it ends.
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

private:
    int fd;
};

// The whole file, if it is a regular file of at most maxSidecarBytes. Opened without blocking so
// that a FIFO given a sidecar's name cannot hang a rescan.
std::optional<QByteArray> readSmallFile(const QString& path)
{
    const QByteArray native = QFile::encodeName(path);
    FileDescriptor file(::open(native.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (file.get() < 0) return std::nullopt;
    struct stat info { };
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > maxSidecarBytes) {
        return std::nullopt;
    }
    // Read one byte past the limit, so that a file that grew after fstat is still refused.
    QByteArray bytes(static_cast<qsizetype>(info.st_size) + 1, Qt::Uninitialized);
    qsizetype filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = ::read(file.get(), bytes.data() + filled, static_cast<size_t>(bytes.size() - filled));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        filled += got;
        if (filled > maxSidecarBytes) return std::nullopt;
    }
    bytes.truncate(filled);
    return bytes;
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
    QJsonParseError error {};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) return std::nullopt;
    const QJsonObject object = document.object();

    ClipMeta meta;
    const auto outcome = requiredString(object, QLatin1StringView("outcome"));
    const auto unit = requiredString(object, QLatin1StringView("unit"));
    const auto notes = requiredString(object, QLatin1StringView("notes"));
    const auto mistakes = requiredString(object, QLatin1StringView("mistakes"));
    if (!outcome || !unit || !notes || !mistakes) return std::nullopt;
    const auto outcomeValue = tradeOutcomeFromRaw(*outcome);
    const auto unitValue = pnlUnitFromRaw(*unit);
    if (!outcomeValue || !unitValue) return std::nullopt;
    meta.outcome = *outcomeValue;
    meta.unit = *unitValue;
    meta.notes = *notes;
    meta.mistakes = *mistakes;

    const QJsonValue ticker = object.value(QLatin1StringView("ticker"));
    if (ticker.isString()) {
        meta.ticker = ticker.toString();
    } else if (!ticker.isUndefined() && !ticker.isNull()) {
        return std::nullopt;
    }
    if (optionalNumber(object, QLatin1StringView("pnl"), meta.pnl) == Presence::wrongType) return std::nullopt;
    // An amount beyond any account reads as no amount; the rest of the record stands, and the file
    // keeps what it says until the user saves the record again.
    if (meta.pnl && !ClipMeta::isPlausiblePnL(*meta.pnl)) meta.pnl.reset();
    if (optionalNumber(object, QLatin1StringView("date"), meta.date) == Presence::wrongType) return std::nullopt;
    if (optionalRect(object, QLatin1StringView("monitorRect"), meta.monitorRect) == Presence::wrongType) {
        return std::nullopt;
    }
    if (optionalSize(object, QLatin1StringView("recordedSize"), meta.recordedSize) == Presence::wrongType) {
        return std::nullopt;
    }
    if (optionalSize(object, QLatin1StringView("sourcePointSize"), meta.sourcePointSize) == Presence::wrongType) {
        return std::nullopt;
    }
    if (!decodeImportFields(object, meta)) return std::nullopt;
    return meta;
}

std::optional<QByteArray> encode(const ClipMeta& meta)
{
    // JSON has no NaN or infinity; such a record is not written at all rather than written wrong.
    bool finite = true;
    const auto number = [&finite](double value) {
        if (!std::isfinite(value)) finite = false;
        return value;
    };

    QJsonObject object;
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

ClipMeta load(const QUrl& clip)
{
    const auto bytes = readSmallFile(sidecarPath(clip));
    if (!bytes) return {};
    return decode(*bytes).value_or(ClipMeta {});
}

void save(const ClipMeta& meta, const QUrl& clip)
{
    const QString path = sidecarPath(clip);
    if (meta.isEmpty()) {
        // Usually there was no sidecar to remove; that is fine.
        QFile::remove(path);
        return;
    }
    const auto bytes = encode(meta);
    if (!bytes) return;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return;
    if (file.write(*bytes) != bytes->size()) {
        file.cancelWriting();
        return;
    }
    file.commit();
}

} // namespace ClipMetaStore
