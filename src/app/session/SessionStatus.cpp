#include "app/session/SessionStatus.h"

void SessionStatus::setToast(const std::optional<QString>& text)
{
    toastText = text;
    emit toastChanged();
}

void SessionStatus::setLastSavedURL(const QString& path)
{
    lastSaved = path;
    emit lastSavedURLChanged();
}
