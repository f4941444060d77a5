#pragma once

#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <optional>

class QProcess;

// A private desktop for integration tests: an Xvfb server on a display number the server picks
// itself (-displayfd, so parallel runs never collide) and a PulseAudio daemon in its own runtime
// directory with a null sink "vsink" (its monitor is the "system audio") as the default sink and a
// sine source "vmic" as the default source (the microphone).
//
// While it runs, DISPLAY and PULSE_SERVER of this process point at it. Stopping (or destroying) it
// ends both servers and restores the environment; the children also die with the test process.
class TestDesktop {
public:
    struct Options {
        int width = 1280;
        int height = 720;
        bool audio = true;
        bool windowManager = false; // openbox, for EWMH behaviour
        bool sharedMemory = true; // MIT-SHM; without it, the server is as a remote display is to us
    };

    TestDesktop();
    ~TestDesktop();

    // Empty string on success, otherwise what failed.
    QString start(const Options& options);
    QString start() { return start(Options {}); }
    void stop();
    // Ends the X server alone, as a session that goes away does; the sound server stays.
    void stopDisplay();
    // Ends the PulseAudio daemon and starts a new one at the same address with the same devices,
    // as a restart of the user's sound server does. Empty string once the new one answers.
    QString restartSound();

    QString display() const { return displayName; } // ":N"
    QString pulseServer() const { return pulseAddress; } // "unix:/…/native"
    QString runtimeDir() const;

    // Runs a command on this desktop and returns its exit code (-1 if it did not run); stdout into *out.
    int run(const QString& program, const QStringList& args, QString* out = nullptr, int timeoutMs = 10000) const;

private:
    QString startX(const Options& options);
    QString startPulse();
    QString startWindowManager();
    bool windowManagerShowsWindows() const;

    std::unique_ptr<QTemporaryDir> dir;
    std::unique_ptr<QProcess> xvfb;
    std::unique_ptr<QProcess> windowManager;
    std::unique_ptr<QProcess> pulse;
    QString displayName;
    QString pulseAddress;
    std::optional<QByteArray> savedDisplay;
    std::optional<QByteArray> savedPulseServer;
};
