#include "app/SettingsReader.h"

#include "core/Log.h"

#include <QSettings>
#include <QVariant>

#include <algorithm>
#include <cmath>

namespace {

// NaN and the infinities are no number a setting can mean, whether spelled as text or stored as a
// binary double (a hand-edited "@Variant(...)"): they count as bad values like any other.
std::optional<double> toDouble(const QVariant& value)
{
    double d = 0;
    switch (value.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        d = value.toDouble();
        break;
    case QMetaType::QString: {
        bool ok = false;
        d = value.toString().trimmed().toDouble(&ok);
        if (!ok) return std::nullopt;
        break;
    }
    default:
        return std::nullopt;
    }
    if (!std::isfinite(d)) return std::nullopt;
    return d;
}

double held(double value, SettingsReader::Range range)
{
    return std::clamp(value, range.min, range.max);
}

QString rangeText(SettingsReader::Range range)
{
    return QStringLiteral("%1 to %2").arg(range.min).arg(range.max);
}

} // namespace

std::optional<double> SettingsReader::readDouble(const char* key) const
{
    return toDouble(store.value(QLatin1String(key)));
}

std::optional<double> SettingsReader::readDouble(const char* key, Range range) const
{
    const std::optional<double> stored = readDouble(key);
    if (!stored) return std::nullopt;
    const double value = held(*stored, range);
    if (value != *stored)
        logLine(QStringLiteral("Settings: %1 = %2 is outside %3; using %4")
                    .arg(QLatin1String(key))
                    .arg(*stored)
                    .arg(rangeText(range))
                    .arg(value));
    return value;
}

std::optional<bool> SettingsReader::readBool(const char* key) const
{
    const QVariant value = store.value(QLatin1String(key));
    if (value.typeId() == QMetaType::Bool) return value.toBool();
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString().trimmed().toLower();
        if (text == QLatin1String("true")) return true;
        if (text == QLatin1String("false")) return false;
    }
    if (const auto number = toDouble(value)) {
        if (*number == 1.0) return true;
        if (*number == 0.0) return false;
    }
    return std::nullopt;
}

std::optional<QString> SettingsReader::readString(const char* key) const
{
    const QVariant value = store.value(QLatin1String(key));
    if (value.typeId() == QMetaType::QString) return value.toString();
    return std::nullopt;
}

QString SettingsReader::rawString(const char* key) const
{
    return readString(key).value_or(QString());
}

long long SettingsReader::integer(const char* key) const
{
    const auto number = toDouble(store.value(QLatin1String(key)));
    if (!number || std::fabs(*number) > 9.2e18) return 0;
    return static_cast<long long>(*number);
}

std::optional<HotkeyBinding> SettingsReader::hotkey(const char* key) const
{
    const QVariant value = store.value(QLatin1String(key));
    if (value.typeId() == QMetaType::QByteArray) return HotkeyBinding::fromJson(value.toByteArray());
    if (value.typeId() == QMetaType::QString) return HotkeyBinding::fromJson(value.toString().toUtf8());
    return std::nullopt;
}

std::optional<QRectF> SettingsReader::rect(const char* key, Range origin, Range length) const
{
    const QVariant value = store.value(QLatin1String(key));
    QVariantList items;
    if (value.typeId() == QMetaType::QVariantList)
        items = value.toList();
    else if (value.typeId() == QMetaType::QStringList)
        for (const QString& s : value.toStringList())
            items.append(s);
    else
        return std::nullopt;
    if (items.size() != 4) return std::nullopt;
    double v[4];
    for (int i = 0; i < 4; ++i) {
        const auto d = toDouble(items[i]);
        if (!d) return std::nullopt;
        v[i] = *d;
    }
    const QRectF stored(v[0], v[1], v[2], v[3]);
    const QRectF rect(held(v[0], origin), held(v[1], origin), held(v[2], length), held(v[3], length));
    if (rect.x() != stored.x() || rect.y() != stored.y() || rect.width() != stored.width()
        || rect.height() != stored.height()) {
        const auto numbers = [](const QRectF& r) {
            return QStringLiteral("%1, %2, %3, %4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
        };
        logLine(QStringLiteral("Settings: %1 = %2 is outside corners of %3 and sizes of %4; using %5")
                    .arg(QLatin1String(key), numbers(stored), rangeText(origin), rangeText(length), numbers(rect)));
    }
    return rect;
}

std::optional<QByteArray> SettingsReader::data(const char* key) const
{
    const QVariant value = store.value(QLatin1String(key));
    if (value.typeId() == QMetaType::QByteArray) return value.toByteArray();
    return std::nullopt;
}
