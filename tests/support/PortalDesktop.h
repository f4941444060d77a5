#pragma once

#include <QDBusConnection>
#include <QProcessEnvironment>
#include <QSize>
#include <QString>
#include <QTemporaryDir>
#include <QVariant>

#include <memory>
#include <vector>

class QProcess;

// A private Wayland-less "desktop" for the portal tests: a session bus of its own, PipeWire and
// WirePlumber in a private runtime directory, the real xdg-desktop-portal, and our test backend
// (velotape-test-portal) chosen through XDG_CURRENT_DESKTOP and XDG_DESKTOP_PORTAL_DIR. The bus
// activates only the permission store (where the portal keeps restore tokens), not the document
// portal, which would mount a FUSE file system in the runtime directory.
//
// Nothing of this process's environment is changed: programs under test get environment(), and
// the test talks to the bus through bus() and to the backend through control().
class PortalDesktop {
public:
    struct Options {
        QSize size { 640, 360 };
        QString format = QStringLiteral("BGRx"); // what the test backend's node sends
        int counterMs = 100; // how often the painted counter goes up
        // The backend's node sends DMA-BUFs where the reader takes them (memfds standing in for them:
        // there is no GPU here); shared memory otherwise.
        bool dmaBuf = false;
        // With dmaBuf: DMA-BUFs with no memory behind them, as a driver's that map nowhere.
        bool dmaBufUnmappable = false;
        uint cursorModes = 1 | 2 | 4; // what the ScreenCast backend offers: hidden, embedded, metadata
    };

    PortalDesktop();
    ~PortalDesktop();

    // The first program the harness needs that is not installed, or empty.
    static QString missingProgram();

    // Empty string on success, otherwise what failed.
    QString start(const Options& options);
    QString start() { return start(Options {}); }
    void stop();
    // Ends PipeWire and WirePlumber and starts them again, as a package upgrade or a crash and
    // the user's service manager do. Empty string on success, otherwise what failed.
    QString restartPipeWire();

    // For a program under test: the bus, the runtime directory, a Wayland session type and no X
    // display. HOME and the configuration folders are the desktop's own, unless the caller sets
    // them after.
    QProcessEnvironment environment() const;
    QString busAddress() const { return address; }
    QString runtimeDir() const;
    QDBusConnection bus() const;

    // Calls `method` of org.velotape.TestPortal; the first value of the answer, or an invalid
    // QVariant (with the error in the test's output) if the call failed.
    QVariant control(const QString& method, const QVariantList& arguments = {}) const;

private:
    QProcess* launch(const QString& program, const QStringList& arguments, const QString& logName);
    bool waitForName(const QString& name, int timeoutMs) const;
    QString startPipeWire();

    std::unique_ptr<QTemporaryDir> dir;
    std::vector<std::unique_ptr<QProcess>> processes; // in the order started
    QProcess* pipeWire = nullptr; // in `processes`
    QProcess* wirePlumber = nullptr; // in `processes`
    QProcessEnvironment env;
    QString address;
    QString connectionName;
};
