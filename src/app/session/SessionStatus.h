#pragma once

#include <QObject>
#include <QString>

#include <optional>

// What the session says to the user: the toast of the moment and the clip saved last. The session
// controller writes it; the window, the clips screen, the notifications and the headless output
// show it.
//
// Main thread.
class SessionStatus : public QObject {
    Q_OBJECT
    Q_PROPERTY(std::optional<QString> toast READ toast NOTIFY toastChanged)
    Q_PROPERTY(std::optional<QString> lastSavedURL READ lastSavedURL NOTIFY lastSavedURLChanged)

public:
    using QObject::QObject;

    const std::optional<QString>& toast() const { return toastText; }
    const std::optional<QString>& lastSavedURL() const { return lastSaved; }

    void setToast(const std::optional<QString>& text);
    void setLastSavedURL(const QString& path);

signals:
    void toastChanged();
    void lastSavedURLChanged();

private:
    std::optional<QString> toastText;
    std::optional<QString> lastSaved;
};
