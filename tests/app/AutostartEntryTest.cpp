#include "app/AutostartEntry.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// Each case with a config folder of its own, given back afterwards.
class Autostart : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (qEnvironmentVariableIsSet("XDG_CONFIG_HOME")) saved = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    }
    void TearDown() override
    {
        if (saved)
            qputenv("XDG_CONFIG_HOME", *saved);
        else
            qunsetenv("XDG_CONFIG_HOME");
    }

    // desktop-file-validate's complaints about the file; empty when it passes.
    static QString validate(const QString& path)
    {
        QProcess validator;
        validator.setProcessChannelMode(QProcess::MergedChannels);
        validator.start(QStringLiteral("desktop-file-validate"), { path });
        if (!validator.waitForFinished(10000)) return QStringLiteral("desktop-file-validate did not run");
        const QString output = QString::fromLocal8Bit(validator.readAll());
        return validator.exitCode() == 0 && output.isEmpty()
            ? QString()
            : output + QStringLiteral(" (exit code ") + QString::number(validator.exitCode()) + u')';
    }

    QTemporaryDir config;
    std::optional<QByteArray> saved;
};

} // namespace

TEST_F(Autostart, TheEntryStartsTheProgramInTheBackgroundUntilItIsRemovedOrHidden)
{
    const AutostartEntry entry(QStringLiteral("io.github.velotape.Velotape"), QStringLiteral("/usr/bin/velotape"));
    EXPECT_EQ(entry.path(), config.filePath(QStringLiteral("autostart/io.github.velotape.Velotape.desktop")));
    EXPECT_FALSE(entry.isEnabled());
    // Switching off what is not there is no failure.
    EXPECT_EQ(entry.setEnabled(false), std::nullopt);

    ASSERT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_TRUE(entry.isEnabled());
    EXPECT_EQ(validate(entry.path()), QString());
    QFile file(entry.path());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(text.contains(QStringLiteral("\nExec=/usr/bin/velotape --background\n"))) << qPrintable(text);
    file.close();

    // The desktop's start-up settings switch it off without deleting it.
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("Hidden=true\n");
    file.close();
    EXPECT_FALSE(entry.isEnabled());
    // Switched on again, it is ours again.
    ASSERT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_TRUE(entry.isEnabled());

    ASSERT_EQ(entry.setEnabled(false), std::nullopt);
    EXPECT_FALSE(QFile::exists(entry.path()));
    EXPECT_FALSE(entry.isEnabled());
}

TEST_F(Autostart, AProgramPathWithReservedCharactersStaysOneArgument)
{
    EXPECT_EQ(AutostartEntry::execArgument(QStringLiteral("/opt/velotape/bin/velotape")),
        QStringLiteral("/opt/velotape/bin/velotape"));
    EXPECT_EQ(AutostartEntry::execArgument(QStringLiteral("/home/a/100%/velotape")),
        QStringLiteral("/home/a/100%%/velotape"));
    // In quotes ", `, $ and \ are escaped by a backslash, which the entry's string rules double.
    EXPECT_EQ(AutostartEntry::execArgument(QStringLiteral("/home/a b/$x\"y\\/velotape")),
        QStringLiteral("\"/home/a b/\\\\$x\\\\\"y\\\\\\\\/velotape\""));

    const AutostartEntry entry(
        QStringLiteral("io.github.velotape.Velotape"), QStringLiteral("/home/a b/$x\"y\\/velotape"));
    ASSERT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_EQ(validate(entry.path()), QString());
}

TEST_F(Autostart, AFolderThatCannotBeMadeIsSaidAndChangesNothing)
{
    // The autostart folder's place is taken by a file.
    QFile blocker(config.filePath(QStringLiteral("autostart")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const AutostartEntry entry(QStringLiteral("io.github.velotape.Velotape"), QStringLiteral("/usr/bin/velotape"));
    const std::optional<QString> problem = entry.setEnabled(true);
    ASSERT_TRUE(problem.has_value());
    EXPECT_TRUE(problem->contains(config.filePath(QStringLiteral("autostart")))) << qPrintable(*problem);
    EXPECT_FALSE(entry.isEnabled());
}
