#include "journal/TagOrigin.h"

QString rawValue(TagOrigin origin)
{
    switch (origin) {
    case TagOrigin::detected:
        return QStringLiteral("detected");
    case TagOrigin::imported:
        return QStringLiteral("imported");
    }
    return QStringLiteral("detected");
}

std::optional<TagOrigin> tagOriginFromRaw(QStringView raw)
{
    if (raw == QLatin1StringView("detected")) return TagOrigin::detected;
    if (raw == QLatin1StringView("imported")) return TagOrigin::imported;
    return std::nullopt;
}
