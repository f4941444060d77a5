#include "app/SettingsReader.h"

#include <QSettings>
#include <QVariant>

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

} // namespace

std::optional<double> SettingsReader::readDouble(const char* key) const
{
    return toDouble(store.value(QLatin1String(key)));
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

std::optional<QRectF> SettingsReader::rect(const char* key) const
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
    return QRectF(v[0], v[1], v[2], v[3]);
}

std::optional<QByteArray> SettingsReader::data(const char* key) const
{
    const QVariant value = store.value(QLatin1String(key));
    if (value.typeId() == QMetaType::QByteArray) return value.toByteArray();
    return std::nullopt;
}
