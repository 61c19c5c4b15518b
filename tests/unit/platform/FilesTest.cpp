#include "platform/Files.h"

#include "Services.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <sys/stat.h>

#include <gtest/gtest.h>

TEST(Files, CachesLiveUnderTheUserCacheFolder) {
    TempHome home;
    EXPECT_EQ(Files::cachesDirectory(), home.cacheHome() + "/velnor-rz");
}

TEST(Files, TemporaryDirectoryIsTheSystemOne) {
    EXPECT_EQ(Files::temporaryDirectory(), QDir::tempPath());
}

TEST(Files, WriteAtomicallyMakesFoldersAndReplacesTheWholeFile) {
    QTemporaryDir dir;
    const QString path = dir.filePath("a/b/calls.v1.json");
    ASSERT_TRUE(Files::writeAtomically(path, "first, and longer than the second"));
    ASSERT_TRUE(Files::writeAtomically(path, "second"));
    EXPECT_EQ(Files::read(path), QByteArray("second"));
    // Nothing but the file itself is left beside it.
    EXPECT_EQ(QDir(dir.filePath("a/b")).entryList(QDir::Files | QDir::Hidden),
              QStringList{"calls.v1.json"});
}

TEST(Files, AWriteReplacesByRenameSoReadersNeverSeeHalfAFile) {
    QTemporaryDir dir;
    const QString path = dir.filePath("directory-contacts.json");
    ASSERT_TRUE(Files::writeAtomically(path, "old"));
    struct stat before {};
    ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &before), 0);
    // A reader holding the old file keeps reading the old bytes.
    QFile reader(path);
    ASSERT_TRUE(reader.open(QIODevice::ReadOnly));
    ASSERT_TRUE(Files::writeAtomically(path, "new"));
    struct stat after {};
    ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino);
    EXPECT_EQ(reader.readAll(), QByteArray("old"));
    EXPECT_EQ(Files::read(path), QByteArray("new"));
}

TEST(Files, WritingOverAFolderFailsAndLeavesIt) {
    QTemporaryDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.filePath("avatars/inner")));
    EXPECT_FALSE(Files::writeAtomically(dir.filePath("avatars"), "x"));
    EXPECT_TRUE(QFileInfo(dir.filePath("avatars/inner")).isDir());
}

TEST(Files, AFileInTheWayOfAFolderFailsTheWrite) {
    QTemporaryDir dir;
    ASSERT_TRUE(Files::writeAtomically(dir.filePath("blocker"), "x"));
    EXPECT_FALSE(Files::writeAtomically(dir.filePath("blocker/inner.json"), "y"));
}

TEST(Files, ReadingAMissingFileGivesNone) {
    QTemporaryDir dir;
    EXPECT_EQ(Files::read(dir.filePath("missing")), std::nullopt);
}

TEST(Files, EmptyBytesMakeAnEmptyFile) {
    QTemporaryDir dir;
    ASSERT_TRUE(Files::writeAtomically(dir.filePath("e"), {}));
    EXPECT_EQ(Files::read(dir.filePath("e")), QByteArray());
}
