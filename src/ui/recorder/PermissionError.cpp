#include "ui/recorder/PermissionError.h"

std::optional<QString> permissionError(const std::optional<QString>& errorMessage)
{
    if (!errorMessage) return std::nullopt;
    if (errorMessage->contains(QStringLiteral("permission"), Qt::CaseInsensitive)
        || errorMessage->contains(QStringLiteral("declined"), Qt::CaseInsensitive))
        return errorMessage;
    return std::nullopt;
}
