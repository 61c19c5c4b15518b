#include "platform/AutostartEntry.h"

#include "Services.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeAll(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

} // namespace

TEST(AutostartEntry, LivesInTheUsersAutostartFolderUnderTheAppsId) {
    TempHome home;
    const AutostartEntry entry(QStringLiteral("/usr/bin/velnor-rz"));
    EXPECT_EQ(entry.path(), home.configHome() + "/autostart/net.velnor.rz.desktop");
}

TEST(AutostartEntry, IsOffWhenNoEntryExists) {
    QTemporaryDir dir;
    const AutostartEntry entry(dir.filePath("autostart/net.velnor.rz.desktop"),
                               "/usr/bin/velnor-rz");
    EXPECT_FALSE(entry.enabled());
}

TEST(AutostartEntry, TurningOnWritesADesktopEntryThatStartsTheProgram) {
    QTemporaryDir dir;
    AutostartEntry entry(dir.filePath("autostart/net.velnor.rz.desktop"), "/usr/bin/velnor-rz");
    EXPECT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_TRUE(entry.enabled());
    const QByteArray text = readAll(entry.path());
    EXPECT_TRUE(text.startsWith("[Desktop Entry]\n")) << text.constData();
    EXPECT_TRUE(text.contains("\nType=Application\n"));
    EXPECT_TRUE(text.contains("\nExec=/usr/bin/velnor-rz\n"));
    EXPECT_FALSE(text.contains("Hidden"));
}

TEST(AutostartEntry, AProgramPathWithASpaceIsQuotedInExec) {
    QTemporaryDir dir;
    AutostartEntry entry(dir.filePath("net.velnor.rz.desktop"), "/home/a b/bin/velnor-rz");
    ASSERT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_TRUE(readAll(entry.path()).contains("\nExec=\"/home/a b/bin/velnor-rz\"\n"));
}

TEST(AutostartEntry, TurningOffRemovesTheEntry) {
    QTemporaryDir dir;
    AutostartEntry entry(dir.filePath("autostart/net.velnor.rz.desktop"), "/usr/bin/velnor-rz");
    ASSERT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_EQ(entry.setEnabled(false), std::nullopt);
    EXPECT_FALSE(QFile::exists(entry.path()));
    EXPECT_FALSE(entry.enabled());
    // Off when already off is no failure.
    EXPECT_EQ(entry.setEnabled(false), std::nullopt);
}

TEST(AutostartEntry, AnEntryRemovedByHandReadsAsOff) {
    QTemporaryDir dir;
    AutostartEntry entry(dir.filePath("net.velnor.rz.desktop"), "/usr/bin/velnor-rz");
    ASSERT_EQ(entry.setEnabled(true), std::nullopt);
    ASSERT_TRUE(QFile::remove(entry.path()));
    EXPECT_FALSE(entry.enabled());
}

TEST(AutostartEntry, AnEntryHiddenByTheDesktopReadsAsOff) {
    QTemporaryDir dir;
    const QString path = dir.filePath("net.velnor.rz.desktop");
    writeAll(path, "[Desktop Entry]\nType=Application\nExec=velnor-rz\nHidden=true\n");
    EXPECT_FALSE(AutostartEntry(path, "velnor-rz").enabled());
    writeAll(path, "[Desktop Entry]\nType=Application\nExec=velnor-rz\nHidden = false\n");
    EXPECT_TRUE(AutostartEntry(path, "velnor-rz").enabled());
}

TEST(AutostartEntry, AHiddenKeyOutsideTheMainGroupDoesNotTurnItOff) {
    QTemporaryDir dir;
    const QString path = dir.filePath("net.velnor.rz.desktop");
    writeAll(path, "[Desktop Entry]\nType=Application\nExec=velnor-rz\n\n"
                   "[Desktop Action quiet]\nHidden=true\n");
    EXPECT_TRUE(AutostartEntry(path, "velnor-rz").enabled());
}

TEST(AutostartEntry, TurningOnAHiddenEntryMakesItShowAgain) {
    QTemporaryDir dir;
    const QString path = dir.filePath("net.velnor.rz.desktop");
    writeAll(path, "[Desktop Entry]\nType=Application\nExec=velnor-rz\nHidden=true\n");
    AutostartEntry entry(path, "velnor-rz");
    ASSERT_EQ(entry.setEnabled(true), std::nullopt);
    EXPECT_TRUE(entry.enabled());
}

TEST(AutostartEntry, AnAutostartFolderThatCannotBeMadeFailsWithASentenceAndStaysOff) {
    QTemporaryDir dir;
    // A file where the folder should be.
    writeAll(dir.filePath("autostart"), "not a folder");
    AutostartEntry entry(dir.filePath("autostart/net.velnor.rz.desktop"), "velnor-rz");
    const auto failure = entry.setEnabled(true);
    ASSERT_TRUE(failure.has_value());
    EXPECT_TRUE(failure->startsWith("The autostart folder")) << failure->toStdString();
    EXPECT_FALSE(entry.enabled());
}

TEST(AutostartEntry, AnEntryPathTakenByAFolderFailsWithTheSystemsReasonAndStaysOff) {
    QTemporaryDir dir;
    const QString path = dir.filePath("autostart/net.velnor.rz.desktop");
    ASSERT_TRUE(QDir().mkpath(path));
    AutostartEntry entry(path, "velnor-rz");
    const auto failure = entry.setEnabled(true);
    ASSERT_TRUE(failure.has_value());
    const QString lead = QStringLiteral("The autostart entry could not be written: ");
    EXPECT_TRUE(failure->startsWith(lead)) << failure->toStdString();
    EXPECT_GT(failure->size(), lead.size());
    EXPECT_FALSE(entry.enabled());
}
