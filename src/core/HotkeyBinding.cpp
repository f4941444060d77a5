#include "core/HotkeyBinding.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

// A JSON number that is a whole number within [0, max].
std::optional<uint64_t> wholeNumber(const QJsonValue& value, double max)
{
    if (!value.isDouble()) return std::nullopt;
    const double d = value.toDouble();
    if (d < 0 || d > max || std::floor(d) != d) return std::nullopt;
    return static_cast<uint64_t>(d);
}

} // namespace

HotkeyBinding HotkeyBinding::defaultSave()
{
    return HotkeyBinding { true, keyCodeR, QStringLiteral("r"), commandBit | shiftBit };
}

HotkeyBinding HotkeyBinding::defaultArm()
{
    return HotkeyBinding { false, 0, QString(), 0 };
}

QByteArray HotkeyBinding::toJson() const
{
    QJsonObject object;
    object.insert(QStringLiteral("enabled"), enabled);
    object.insert(QStringLiteral("keyCode"), static_cast<int>(keyCode));
    object.insert(QStringLiteral("keyChar"), keyChar);
    object.insert(QStringLiteral("modifierRaw"), static_cast<double>(modifierRaw));
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<HotkeyBinding> HotkeyBinding::fromJson(const QByteArray& json)
{
    QJsonParseError error {};
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) return std::nullopt;
    const QJsonObject object = doc.object();
    const QJsonValue enabled = object.value(QStringLiteral("enabled"));
    const QJsonValue keyChar = object.value(QStringLiteral("keyChar"));
    const auto keyCode = wholeNumber(object.value(QStringLiteral("keyCode")), 65535);
    // JSON numbers are doubles: 2^53 is where whole numbers stop being exact.
    const auto modifiers = wholeNumber(object.value(QStringLiteral("modifierRaw")), 9007199254740992.0);
    if (!enabled.isBool() || !keyChar.isString() || !keyCode || !modifiers) return std::nullopt;
    return HotkeyBinding { enabled.toBool(), static_cast<uint16_t>(*keyCode), keyChar.toString(), *modifiers };
}
