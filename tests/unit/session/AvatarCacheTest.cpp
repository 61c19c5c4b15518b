#include "session/AvatarCache.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// Pictures on disk: their file names, atomic writes and the size bound.
namespace {

AvatarRef ref(const QString& url, const QString& version) {
    return AvatarRef{url, version};
}

QStringList filesIn(const QString& dir) {
    auto files = QDir(dir).entryList(QDir::Files);
    files.sort();
    return files;
}

} // namespace

TEST(AvatarCache, TheFileNameKeepsLettersAndDigitsAndAppendsTheVersion) {
    EXPECT_EQ(AvatarCache::fileName(ref("/media/a.jpg", "3")), "_media_a_jpg-3.img");
}

TEST(AvatarCache, TwoVersionsOfOnePictureAreTwoFiles) {
    EXPECT_NE(AvatarCache::fileName(ref("/media/a.jpg", "3")),
              AvatarCache::fileName(ref("/media/a.jpg", "4")));
}

TEST(AvatarCache, UrlsThatDifferOnlyInPunctuationShareAFile) {
    EXPECT_EQ(AvatarCache::fileName(ref("a/b", "1")), AvatarCache::fileName(ref("a.b", "1")));
}

TEST(AvatarCache, TheFolderIsAvatarsInTheCachesDirectory) {
    QTemporaryDir caches;
    qputenv("XDG_CACHE_HOME", caches.path().toUtf8());
    EXPECT_EQ(AvatarCache::defaultDirectory(), caches.path() + "/velnor-rz/avatars");
}

TEST(AvatarCache, AWrittenPictureIsReadBackAndItsFolderIsMade) {
    QTemporaryDir root;
    AvatarCache cache(root.path() + "/a/b/avatars");
    EXPECT_FALSE(cache.read(ref("/m/x.jpg", "1")));
    ASSERT_TRUE(cache.write(ref("/m/x.jpg", "1"), "JPEGBYTES"));
    EXPECT_EQ(cache.read(ref("/m/x.jpg", "1")), QByteArray("JPEGBYTES"));
    EXPECT_FALSE(cache.read(ref("/m/x.jpg", "2")));
    // Nothing but the picture is left in the folder: the write went through a sibling.
    EXPECT_EQ(filesIn(root.path() + "/a/b/avatars"), QStringList({"_m_x_jpg-1.img"}));
}

TEST(AvatarCache, AnUnwritableFolderFailsTheWriteQuietly) {
    QTemporaryDir root;
    QFile blocker(root.path() + "/file");
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    // A folder cannot be made inside a file, not even by root.
    AvatarCache cache(root.path() + "/file/avatars");
    EXPECT_FALSE(cache.write(ref("/m/x.jpg", "1"), "JPEG"));
    EXPECT_FALSE(cache.read(ref("/m/x.jpg", "1")));
}

TEST(AvatarCache, PastTheBoundTheLeastRecentlyUsedPicturesGo) {
    QTemporaryDir root;
    const QByteArray picture(400, 'x');
    AvatarCache cache(root.path(), 1000); // room for two
    ASSERT_TRUE(cache.write(ref("a", "1"), picture));
    ASSERT_TRUE(cache.write(ref("b", "1"), picture));
    // "a" was shown again, so "b" is now the one used longest ago.
    ASSERT_TRUE(cache.read(ref("a", "1")));
    ASSERT_TRUE(cache.write(ref("c", "1"), picture));
    EXPECT_EQ(filesIn(root.path()), QStringList({"a-1.img", "c-1.img"}));
    EXPECT_EQ(cache.bytesOnDisk(), 800);
}

TEST(AvatarCache, TheBoundHoldsAcrossALaterLaunch) {
    QTemporaryDir root;
    const QByteArray picture(400, 'x');
    {
        AvatarCache cache(root.path(), 1000);
        ASSERT_TRUE(cache.write(ref("a", "1"), picture));
        ASSERT_TRUE(cache.write(ref("b", "1"), picture));
        ASSERT_TRUE(cache.read(ref("a", "1")));
    }
    // A new cache over the same folder learns the order from the files.
    AvatarCache later(root.path(), 1000);
    EXPECT_EQ(later.bytesOnDisk(), 800);
    ASSERT_TRUE(later.write(ref("c", "1"), picture));
    EXPECT_EQ(filesIn(root.path()), QStringList({"a-1.img", "c-1.img"}));
}

TEST(AvatarCache, APictureLargerThanTheBoundIsStillKeptAlone) {
    QTemporaryDir root;
    AvatarCache cache(root.path(), 1000);
    ASSERT_TRUE(cache.write(ref("a", "1"), QByteArray(400, 'x')));
    ASSERT_TRUE(cache.write(ref("big", "1"), QByteArray(1500, 'x')));
    EXPECT_EQ(filesIn(root.path()), QStringList({"big-1.img"}));
}

TEST(AvatarCache, RewritingAPictureCountsItsSizeOnce) {
    QTemporaryDir root;
    AvatarCache cache(root.path(), 1000);
    ASSERT_TRUE(cache.write(ref("a", "1"), QByteArray(400, 'x')));
    ASSERT_TRUE(cache.write(ref("a", "1"), QByteArray(300, 'y')));
    EXPECT_EQ(cache.bytesOnDisk(), 300);
    EXPECT_EQ(cache.read(ref("a", "1")), QByteArray(300, 'y'));
}

TEST(AvatarCache, APictureRemovedBehindItsBackIsForgotten) {
    QTemporaryDir root;
    AvatarCache cache(root.path(), 1000);
    ASSERT_TRUE(cache.write(ref("a", "1"), QByteArray(400, 'x')));
    ASSERT_TRUE(QFile::remove(root.path() + "/a-1.img"));
    EXPECT_FALSE(cache.read(ref("a", "1")));
    EXPECT_EQ(cache.bytesOnDisk(), 0);
}

TEST(AvatarCache, TheDefaultBoundIsFiftyMegabytes) {
    EXPECT_EQ(AvatarCache::defaultLimitBytes, 50LL * 1024 * 1024);
}
