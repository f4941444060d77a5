#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// A `velotape --headless` instance run by an end-to-end test, and the command line that talks to it.
namespace HeadlessRun {

// Starts `binary --headless` in `instance`, its log lines forwarded to the test's output, killed
// with the test. False when it would not start.
bool start(QProcess& instance, const QString& binary, const QProcessEnvironment& env);

// Writes the settings file an instance reads (under env's XDG_CONFIG_HOME): a 4 s ring, no sound,
// clips saved in `saveFolder`, then the `more` lines. Its path; empty when it can't be written.
QString writeSettings(const QProcessEnvironment& env, const QString& saveFolder, const QString& more = {});

// Ends it: asked first, killed when it does not go.
void stop(QProcess& instance);

// `binary COMMAND...` against the running instance: its answer (both streams, trimmed) and status.
QString control(const QString& binary, const QProcessEnvironment& env, const QStringList& command, int* status);

// Waits until `status` says the ring holds `seconds`; empty when it does, else why not.
QString waitUntilBuffered(const QString& binary, const QProcessEnvironment& env, double seconds);

// Whether the instance printed `text` on standard output, waiting up to `ms`; `output` collects all
// it printed so far.
bool said(QProcess& instance, QString& output, const QString& text, int ms);

// The clips in `folder`, once there are `count` of them or 30 s have gone.
QStringList waitForClips(const QString& folder, int count);

} // namespace HeadlessRun
