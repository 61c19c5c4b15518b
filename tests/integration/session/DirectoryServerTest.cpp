#include "session/Session.h"

#include "history/DirectoryCache.h"
#include "platform/Files.h"

#include "BrowserKit.h"
#include "DevServer.h"
#include "EventLoopWait.h"
#include "RunTask.h"
#include "Services.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using nlohmann::json;

// The directory and the pictures against rz-devserver: the conditional read,
// the picture caches and the user's own picture.
namespace {

class DirectoryServer : public testing::Test {
protected:
    DirectoryServer() {
        qputenv("XDG_CACHE_HOME", caches.path().toUtf8());
        settings.setUrl("rz.server", server.url());
    }

    std::unique_ptr<Session> make() {
        auto session = std::make_unique<Session>(settings, secrets);
        useSigningInBrowser(*session);
        return session;
    }

    // Signed in, with the directory that enter() reads already here.
    std::unique_ptr<Session> signedIn() {
        auto session = make();
        session->signIn();
        QDeadlineTimer deadline(10000);
        while (!session->directory() && !session->hasError() && !session->hasDirectoryError() &&
               !deadline.hasExpired()) {
            QTest::qWait(20);
        }
        EXPECT_TRUE(session->directory().has_value());
        EXPECT_FALSE(session->hasError()) << session->errorText().toStdString();
        EXPECT_FALSE(session->hasDirectoryError()) << session->directoryErrorText().toStdString();
        return session;
    }

    QList<json> requests(const QString& method, const QString& path) {
        QList<json> seen;
        for (const json& request : server.control("GET", "requests")) {
            if (request["method"] == method.toStdString() &&
                request["path"] == path.toStdString()) {
                seen.append(request);
            }
        }
        return seen;
    }

    static std::optional<std::string> header(const json& request, const std::string& name) {
        for (const auto& pair : request["headers"]) {
            if (QString::fromStdString(pair[0].get<std::string>())
                    .compare(QString::fromStdString(name), Qt::CaseInsensitive) == 0) {
                return pair[1].get<std::string>();
            }
        }
        return std::nullopt;
    }

    std::string serverTag() { return server.control("GET", "model")["directoryETag"]; }

    static const Directory::Entry* user(const Session& session, const QString& id) {
        for (const auto& entry : session.directory()->users) {
            if (entry.id == id) {
                return &entry;
            }
        }
        return nullptr;
    }

    QTemporaryDir caches;
    DevServer server{{"--auto-approve", "u-001"}};
    MemorySettingsStore settings;
    MemorySecureStore secrets;
};

const QByteArray jpeg("\xff\xd8\xff\xe0 a picture of the user", 26);

} // namespace

TEST_F(DirectoryServer, TheFirstReadBringsTheCompanyWithItsTagAndWritesTheLauncherFile) {
    auto session = signedIn();
    ASSERT_TRUE(session->directory());
    EXPECT_EQ(session->directory()->users.size(), 12);
    EXPECT_EQ(session->directory()->groups.size(), 3);
    EXPECT_EQ(session->directory()->flows.size(), 2);
    EXPECT_EQ(session->directoryETag(), QString::fromStdString(serverTag()));
    const auto first = requests("GET", "api/directory");
    ASSERT_EQ(first.size(), 1);
    EXPECT_FALSE(header(first[0], "If-None-Match"));
    // Twelve colleagues, three ring groups and two call flows, each with its extension.
    const auto rows = DirectoryCache::read();
    ASSERT_EQ(rows.size(), 17);
    EXPECT_EQ(rows.first(), (DirectoryContact{"201", "Anna Berger", "Colleague"}));
    EXPECT_EQ(rows.at(14).kind, "Group");
    EXPECT_EQ(rows.last(), (DirectoryContact{"701", "After hours", "Call flow"}));
}

TEST_F(DirectoryServer, ASecondReadOfAnUnchangedDirectoryDecodesAndPublishesNothing) {
    auto session = signedIn();
    const int decodes = session->directoryDecodes();
    const auto fileBefore = Files::read(DirectoryCache::path());
    QSignalSpy changed(session.get(), &Session::directoryChanged);
    runTask(session->refreshDirectory());
    EXPECT_EQ(session->directoryDecodes(), decodes);
    EXPECT_EQ(changed.count(), 0);
    const auto reads = requests("GET", "api/directory");
    ASSERT_EQ(reads.size(), 2);
    EXPECT_EQ(header(reads[1], "If-None-Match"), serverTag());
    EXPECT_EQ(Files::read(DirectoryCache::path()), fileBefore);
}

TEST_F(DirectoryServer, AnEditOfAColleagueChangesTheTagAndTheNextReadBringsIt) {
    auto session = signedIn();
    const auto oldTag = session->directoryETag();
    server.control("PATCH", "users/u-002", {{"name", "Ben Changed"}});
    runTask(session->refreshDirectory());
    EXPECT_NE(session->directoryETag(), oldTag);
    EXPECT_EQ(session->directoryETag(), QString::fromStdString(serverTag()));
    ASSERT_TRUE(user(*session, "u-002"));
    EXPECT_EQ(user(*session, "u-002")->name, "Ben Changed");
    const auto names = DirectoryCache::entitiesMatching("ben changed");
    ASSERT_EQ(names.size(), 1);
}

TEST_F(DirectoryServer, AServerErrorKeepsTheListAndTheFileAndAnUnchangedAnswerClearsIt) {
    auto session = signedIn();
    const auto before = *session->directory();
    const auto fileBefore = Files::read(DirectoryCache::path());
    server.control("POST", "faults",
                   {{"path", "api/directory"}, {"status", 500}, {"body", "down for a moment"}});
    runTask(session->refreshDirectory());
    EXPECT_EQ(session->directoryErrorText(), "HTTP 500: down for a moment");
    EXPECT_EQ(*session->directory(), before);
    EXPECT_EQ(Files::read(DirectoryCache::path()), fileBefore);
    const int decodes = session->directoryDecodes();
    runTask(session->refreshDirectory());
    EXPECT_FALSE(session->hasDirectoryError());
    EXPECT_EQ(session->directoryDecodes(), decodes);
}

TEST_F(DirectoryServer, AnUnreadableAnswerKeepsTheListTheTagAndTheFile) {
    auto session = signedIn();
    const auto before = *session->directory();
    const auto tag = session->directoryETag();
    const auto fileBefore = Files::read(DirectoryCache::path());
    server.control("POST", "faults", {{"path", "api/directory"}, {"garbage", true}});
    runTask(session->refreshDirectory());
    EXPECT_TRUE(session->hasDirectoryError());
    EXPECT_FALSE(session->directoryErrorText().isEmpty());
    EXPECT_EQ(*session->directory(), before);
    EXPECT_EQ(session->directoryETag(), tag);
    EXPECT_EQ(Files::read(DirectoryCache::path()), fileBefore);
}

TEST_F(DirectoryServer, AnAnswerWithoutATagLeavesNoneAndTheNextReadIsUnconditional) {
    auto session = signedIn();
    json plain = {{"users", json::array({{{"id", "u-100"}, {"name", "Only One"}}})},
                  {"groups", json::array()},
                  {"flows", json::array()}};
    server.control("POST", "faults",
                   {{"path", "api/directory"}, {"status", 200}, {"body", plain.dump()}});
    runTask(session->refreshDirectory());
    EXPECT_FALSE(session->hasDirectoryError());
    EXPECT_EQ(session->directory()->users.size(), 1);
    EXPECT_FALSE(session->directoryETag());
    runTask(session->refreshDirectory());
    const auto reads = requests("GET", "api/directory");
    ASSERT_EQ(reads.size(), 3);
    EXPECT_FALSE(header(reads[2], "If-None-Match"));
    EXPECT_EQ(session->directory()->users.size(), 12);
}

TEST_F(DirectoryServer, APictureIsDownloadedOnceKeptOnDiskAndInMemory) {
    auto session = signedIn();
    const auto* ben = user(*session, "u-002");
    ASSERT_TRUE(ben && ben->avatar);
    const AvatarRef ref = *ben->avatar;
    ASSERT_TRUE(ref.url.startsWith('/'));
    const auto bytes = runTask(session->avatarData(ref));
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->startsWith("\xff\xd8\xff"));
    EXPECT_EQ(session->avatarImages().value(ref), *bytes);
    EXPECT_EQ(Files::read(session->avatarCache().pathOf(ref)), *bytes);
    EXPECT_TRUE(
        session->avatarCache().pathOf(ref).startsWith(caches.path() + "/velnor-rz/avatars/"));
    // The leading slash is dropped, so the dashboard's own path would be kept.
    EXPECT_EQ(requests("GET", "media/avatars/u-002.jpg").size(), 1);
    EXPECT_EQ(runTask(session->avatarData(ref)), bytes);
    EXPECT_EQ(requests("GET", "media/avatars/u-002.jpg").size(), 1);
}

TEST_F(DirectoryServer, TenRowsAskingForOnePictureAtOnceMakeOneRequest) {
    auto session = signedIn();
    const AvatarRef ref = *user(*session, "u-003")->avatar;
    int answered = 0;
    std::vector<QCoro::Task<>> waits;
    for (int i = 0; i < 10; ++i) {
        waits.push_back([](Session* s, AvatarRef r, int* count) -> QCoro::Task<> {
            if (co_await s->avatarData(r)) {
                ++*count;
            }
        }(session.get(), ref, &answered));
    }
    ASSERT_TRUE(spinUntil([&] { return answered == 10; }, std::chrono::milliseconds(10000)));
    EXPECT_EQ(requests("GET", "media/avatars/u-003.jpg").size(), 1);
}

TEST_F(DirectoryServer, AFailedPictureIsNotRememberedAndTheNextCallAsksAgain) {
    auto session = signedIn();
    const AvatarRef ref = *user(*session, "u-004")->avatar;
    server.control("POST", "faults", {{"path", "media/avatars/*"}, {"status", 500}});
    EXPECT_FALSE(runTask(session->avatarData(ref)));
    EXPECT_FALSE(session->avatarImages().contains(ref));
    EXPECT_FALSE(QFile::exists(session->avatarCache().pathOf(ref)));
    EXPECT_TRUE(runTask(session->avatarData(ref)));
    EXPECT_EQ(requests("GET", "media/avatars/u-004.jpg").size(), 2);
}

TEST_F(DirectoryServer, APictureWithAFullAddressIsAskedAtThatAddress) {
    auto session = signedIn();
    const AvatarRef ref{server.url("media/avatars/u-005.jpg").toString(), "1"};
    const auto bytes = runTask(session->avatarData(ref));
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(bytes->startsWith("\xff\xd8\xff"));
    EXPECT_EQ(requests("GET", "media/avatars/u-005.jpg").size(), 1);
}

TEST_F(DirectoryServer, AKeptPictureIsUsedWithoutAskingEvenFromAnotherServer) {
    auto session = signedIn();
    const AvatarRef ref{"/media/avatars/u-006.jpg", "7"};
    ASSERT_TRUE(Files::writeAtomically(session->avatarCache().pathOf(ref), "kept bytes"));
    EXPECT_EQ(runTask(session->avatarData(ref)), QByteArray("kept bytes"));
    EXPECT_TRUE(requests("GET", "media/avatars/u-006.jpg").isEmpty());
}

TEST_F(DirectoryServer, ALaterLaunchWithTheServerDownShowsPicturesFromDiskAndTheError) {
    AvatarRef ref;
    QByteArray bytes;
    {
        auto session = signedIn();
        ref = *user(*session, "u-007")->avatar;
        bytes = *runTask(session->avatarData(ref));
    }
    server.process().stop();
    auto later = make();
    runTask(later->restore());
    // The launcher still answers from its file, before any network answer.
    EXPECT_FALSE(DirectoryCache::entitiesMatching("anna").isEmpty());
    // As the directory screen does when it shows.
    runTask(later->refreshDirectory());
    EXPECT_TRUE(later->hasDirectoryError());
    EXPECT_FALSE(later->directory());
    EXPECT_EQ(runTask(later->avatarData(ref)), bytes);
}

TEST_F(DirectoryServer, AnUploadedPictureShowsAtOnceAndTheNextReadIsUnconditional) {
    auto session = signedIn();
    server.control("DELETE", "requests");
    runTask(session->uploadAvatar(jpeg));
    EXPECT_FALSE(session->hasError()) << session->errorText().toStdString();
    ASSERT_TRUE(session->me()->avatar);
    const AvatarRef ref = *session->me()->avatar;
    EXPECT_EQ(session->avatarImages().value(ref), jpeg);
    const auto puts = requests("PUT", "api/me/avatar");
    ASSERT_EQ(puts.size(), 1);
    EXPECT_EQ(header(puts[0], "Content-Type"), "image/jpeg");
    const auto reads = requests("GET", "api/directory");
    ASSERT_EQ(reads.size(), 1);
    EXPECT_FALSE(header(reads[0], "If-None-Match"));
    ASSERT_TRUE(user(*session, "u-001")->avatar);
    EXPECT_EQ(*user(*session, "u-001")->avatar, ref);
    // In memory already: not fetched back.
    EXPECT_EQ(runTask(session->avatarData(ref)), jpeg);
    EXPECT_TRUE(requests("GET", "media/avatars/u-001.jpg").isEmpty());
}

TEST_F(DirectoryServer, ARemovedPictureLeavesTheUserWithoutOne) {
    auto session = signedIn();
    ASSERT_TRUE(session->me()->avatar);
    runTask(session->deleteAvatar());
    EXPECT_FALSE(session->hasError());
    EXPECT_FALSE(session->me()->avatar);
    EXPECT_FALSE(user(*session, "u-001")->avatar);
    EXPECT_EQ(requests("DELETE", "api/me/avatar").size(), 1);
}

TEST_F(DirectoryServer, AFailedUploadSetsTheErrorAndKeepsTheOldPicture) {
    auto session = signedIn();
    const auto before = session->me()->avatar;
    server.control("POST", "faults",
                   {{"path", "api/me/avatar"}, {"status", 500}, {"body", "disk full"}});
    runTask(session->uploadAvatar(jpeg));
    EXPECT_EQ(session->errorText(), "HTTP 500: disk full");
    EXPECT_EQ(session->me()->avatar, before);
}

TEST_F(DirectoryServer, AFailedRemovalSetsTheErrorAndKeepsTheOldPicture) {
    auto session = signedIn();
    const auto before = session->me()->avatar;
    server.control("POST", "faults",
                   {{"method", "DELETE"}, {"path", "api/me/avatar"}, {"status", 503}});
    runTask(session->deleteAvatar());
    EXPECT_TRUE(session->hasError());
    EXPECT_EQ(session->me()->avatar, before);
}

TEST_F(DirectoryServer, AGoneSignInEndsTheSessionAndRemovesTheLauncherFile) {
    auto session = signedIn();
    ASSERT_TRUE(QFile::exists(DirectoryCache::path()));
    server.control("POST", "tokens/revoke");
    runTask(session->refreshDirectory());
    EXPECT_EQ(session->state(), Session::State::signedOut);
    EXPECT_FALSE(session->directory());
    EXPECT_FALSE(QFile::exists(DirectoryCache::path()));
    EXPECT_TRUE(DirectoryCache::suggestedEntities().isEmpty());
}
