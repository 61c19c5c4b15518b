#include "DevServerKit.h"

#include <QBuffer>
#include <QDateTime>
#include <QImage>

#include <set>

using namespace kit;

TEST(DevServerRest, MeDescribesTheDemoUser) {
    SignedIn s;
    const auto me = s.get("api/me");
    ASSERT_EQ(me.status, 200);
    EXPECT_TRUE(me.header("Content-Type").startsWith("application/json"));
    const auto body = me.json();
    EXPECT_EQ(body.at("id"), "u-001");
    EXPECT_EQ(body.at("name"), "Anna Berger");
    EXPECT_EQ(body.at("extension"), "201");
    EXPECT_FALSE(body.contains("extension_"));
    EXPECT_EQ(body.at("voicemailBoxId"), "box-201");
    EXPECT_EQ(body.at("dnd"), false);
    EXPECT_EQ(body.at("recording"), "on_demand");
    EXPECT_TRUE(body.at("avatar").at("url").is_string());
    EXPECT_TRUE(body.at("avatar").at("version").is_string());
    const auto& forwarding = body.at("forwarding");
    EXPECT_TRUE(forwarding.at("always").is_null());
    EXPECT_EQ(forwarding.at("busy"), (json{{"type", "voicemail"}, {"id", "box-201"}}));
    EXPECT_EQ(forwarding.at("noAnswer").at("afterS"), 20);
    EXPECT_EQ(forwarding.at("offline").at("type"), "external");
}

TEST(DevServerRest, TheDirectoryHasTheCompanyAndAStrongETag) {
    SignedIn s;
    const auto first = s.get("api/directory");
    ASSERT_EQ(first.status, 200);
    const auto body = first.json();
    EXPECT_GE(body.at("users").size(), 12u);
    EXPECT_EQ(body.at("groups").size(), 3u);
    EXPECT_EQ(body.at("flows").size(), 2u);
    std::set<std::string> ids;
    for (const auto& user : body.at("users")) {
        ids.insert(user.at("id").get<std::string>());
        EXPECT_TRUE(user.at("extension").is_string());
        EXPECT_TRUE(user.at("email").is_string());
        EXPECT_FALSE(user.at("numbers").empty());
    }
    EXPECT_EQ(ids.size(), body.at("users").size());
    const auto tag = first.header("ETag");
    ASSERT_TRUE(tag.startsWith('"') && tag.endsWith('"')) << tag.toStdString();

    const auto again = s.get("api/directory", {{"If-None-Match", tag}});
    EXPECT_EQ(again.status, 304);
    EXPECT_TRUE(again.body.isEmpty());
    EXPECT_EQ(again.header("ETag"), tag);
    EXPECT_EQ(s.get("api/directory", {{"If-None-Match", "\"other\""}}).status, 200);

    s.server.control("POST", "users", {{"name", "Nina Neu"}, {"extension", "299"}});
    const auto changed = s.get("api/directory", {{"If-None-Match", tag}});
    ASSERT_EQ(changed.status, 200);
    EXPECT_NE(changed.header("ETag"), tag);
    EXPECT_EQ(changed.json().at("users").size(), body.at("users").size() + 1);
}

TEST(DevServerRest, DirectorySizeMakesALargeCompany) {
    SignedIn s({"--directory-size", "500"});
    const auto directory = s.get("api/directory").json();
    EXPECT_EQ(directory.at("users").size(), 500u);
}

TEST(DevServerRest, AvatarsAreJpegsAtTheirUrlBehindTheBearer) {
    SignedIn s;
    const auto directory = s.get("api/directory").json();
    int pictures = 0, without = 0;
    for (const auto& user : directory.at("users")) {
        if (!user.contains("avatar")) {
            ++without;
            continue;
        }
        auto url = QString::fromStdString(user.at("avatar").at("url"));
        const auto picture = s.get(url.mid(1));
        ASSERT_EQ(picture.status, 200) << url.toStdString();
        EXPECT_EQ(picture.header("Content-Type"), "image/jpeg");
        EXPECT_FALSE(QImage::fromData(picture.body, "JPEG").isNull());
        ++pictures;
    }
    EXPECT_GE(pictures, 11);
    EXPECT_GE(without, 1);
    const auto url = s.server.url("media/avatars/u-002.jpg");
    EXPECT_EQ(httpRequest(s.network, "GET", url).status, 401);
}

TEST(DevServerRest, AnUploadedAvatarGetsANewVersionAndIsServed) {
    SignedIn s;
    const auto before = s.get("api/me").json().at("avatar");
    const auto tag = s.get("api/directory").header("ETag");
    QImage image(64, 64, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray jpeg;
    {
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        image.save(&buffer, "JPEG");
    }
    const auto upload = s.raw("PUT", "api/me/avatar", jpeg, {{"Content-Type", "image/jpeg"}});
    ASSERT_EQ(upload.status, 200) << upload.body.toStdString();
    const auto avatar = upload.json().at("avatar");
    EXPECT_NE(avatar.at("version"), before.at("version"));
    EXPECT_EQ(s.get("api/me").json().at("avatar"), avatar);
    EXPECT_EQ(s.get(QString::fromStdString(avatar.at("url")).mid(1)).body, jpeg);
    EXPECT_EQ(s.get("api/directory", {{"If-None-Match", tag}}).status, 200);

    EXPECT_EQ(
        s.raw("PUT", "api/me/avatar", "not a picture", {{"Content-Type", "image/jpeg"}}).status,
        400);
    EXPECT_EQ(s.raw("PUT", "api/me/avatar", jpeg, {{"Content-Type", "image/png"}}).status, 415);

    EXPECT_EQ(s.raw("DELETE", "api/me/avatar").status, 204);
    EXPECT_FALSE(s.get("api/me").json().contains("avatar"));
}

TEST(DevServerRest, AnAppDeviceIsStablePerInstallAndCarriesTheEdges) {
    SignedIn s({"--sip-edge", "udp:127.0.0.1:5090", "--sip-edge", "tcp:127.0.0.1:5070"});
    const json request{{"installId", "7A1D6C3E-0000-4000-8000-000000000001"},
                       {"name", "Mac of Anna Berger"},
                       {"platform", "macos"},
                       {"model", "ThinkPad"}};
    const auto first = s.send("POST", "api/me/app-device", request);
    ASSERT_EQ(first.status, 200) << first.body.toStdString();
    const auto device = first.json();
    for (const char* key : {"deviceId", "name", "sipUsername", "password", "realm"}) {
        EXPECT_TRUE(device.at(key).is_string()) << key;
    }
    EXPECT_EQ(device.at("srtp"), false);
    EXPECT_EQ(device.at("edge"),
              (json::array({{{"host", "127.0.0.1"}, {"port", 5090}, {"transport", "udp"}},
                            {{"host", "127.0.0.1"}, {"port", 5070}, {"transport", "tcp"}}})));
    const auto again = s.send("POST", "api/me/app-device", request).json();
    EXPECT_EQ(again.at("deviceId"), device.at("deviceId"));
    EXPECT_EQ(again.at("sipUsername"), device.at("sipUsername"));
    auto other = request;
    other["installId"] = "another";
    other.erase("model");
    const auto second = s.send("POST", "api/me/app-device", other);
    ASSERT_EQ(second.status, 200);
    EXPECT_NE(second.json().at("deviceId"), device.at("deviceId"));

    auto broken = request;
    broken.erase("installId");
    EXPECT_EQ(s.send("POST", "api/me/app-device", broken).status, 400);

    const auto path = "api/devices/" + QString::fromStdString(device.at("deviceId"));
    QNetworkAccessManager bensNetwork;
    const auto ben = signIn(s.server, bensNetwork, "u-002");
    EXPECT_EQ(httpRequest(bensNetwork, "DELETE", s.server.url(path), {}, bearer(ben.access)).status,
              403);
    EXPECT_EQ(s.raw("DELETE", path).status, 204);
    EXPECT_EQ(s.raw("DELETE", path).status, 404);
}

TEST(DevServerRest, ForwardingIsStoredAndEchoedAndNullClearsARule) {
    SignedIn s;
    const json rules{{"always", nullptr},
                     {"busy", {{"type", "user"}, {"id", "u-002"}}},
                     {"noAnswer", {{"afterS", 15}, {"target", {{"type", "hangup"}}}}},
                     {"offline", nullptr}};
    const auto saved = s.send("PUT", "api/me/forwarding", rules);
    ASSERT_EQ(saved.status, 200) << saved.body.toStdString();
    EXPECT_EQ(saved.json(), rules);
    EXPECT_EQ(s.get("api/me").json().at("forwarding"), rules);

    auto partial = rules;
    partial.erase("offline");
    EXPECT_EQ(s.send("PUT", "api/me/forwarding", partial).status, 400);
    auto badTarget = rules;
    badTarget["busy"] = {{"type", "user"}};
    EXPECT_EQ(s.send("PUT", "api/me/forwarding", badTarget).status, 400);
    badTarget["busy"] = {{"type", "external"}, {"id", "x"}};
    EXPECT_EQ(s.send("PUT", "api/me/forwarding", badTarget).status, 400);
    EXPECT_EQ(s.get("api/me").json().at("forwarding"), rules);
}

TEST(DevServerRest, DoNotDisturbIsPatchedOnTheOwnUserOnly) {
    SignedIn s;
    EXPECT_EQ(s.send("PATCH", "api/users/u-001", {{"dnd", true}}).status, 204);
    EXPECT_EQ(s.get("api/me").json().at("dnd"), true);
    EXPECT_EQ(s.send("PATCH", "api/users/u-002", {{"dnd", true}}).status, 403);
    EXPECT_EQ(s.send("PATCH", "api/users/u-001", {{"dnd", "yes"}}).status, 400);
    EXPECT_EQ(s.send("PATCH", "api/users/nobody", {{"dnd", true}}).status, 404);
}

TEST(DevServerRest, TheMailboxListsReadAndUnreadMessages) {
    SignedIn s;
    const auto list = s.get("api/voicemail-boxes/box-201/messages");
    ASSERT_EQ(list.status, 200);
    const auto messages = list.json();
    ASSERT_GE(messages.size(), 4u);
    int unread = 0, read = 0, withoutCaller = 0;
    for (const auto& m : messages) {
        EXPECT_TRUE(m.at("id").is_string());
        EXPECT_TRUE(m.at("createdAt").is_string());
        EXPECT_TRUE(m.at("durationS").is_number());
        (m.contains("readAt") ? read : unread)++;
        withoutCaller += m.contains("caller") ? 0 : 1;
    }
    EXPECT_GE(unread, 1);
    EXPECT_GE(read, 1);
    EXPECT_GE(withoutCaller, 1);
    EXPECT_EQ(s.get("api/voicemail-boxes/box-202/messages").status, 403);
    EXPECT_EQ(s.get("api/voicemail-boxes/box-999/messages").status, 404);
}

TEST(DevServerRest, AMessageIsMarkedReadAndUnreadAndDeleted) {
    SignedIn s;
    EXPECT_EQ(s.send("PATCH", "api/voicemail-messages/vm-1", {{"read", true}}).status, 204);
    auto find = [&](const std::string& id) {
        for (const auto& m : s.get("api/voicemail-boxes/box-201/messages").json()) {
            if (m.at("id") == id)
                return m;
        }
        return json();
    };
    EXPECT_TRUE(find("vm-1").at("readAt").is_string());
    EXPECT_EQ(s.send("PATCH", "api/voicemail-messages/vm-1", {{"read", false}}).status, 204);
    EXPECT_FALSE(find("vm-1").contains("readAt"));
    EXPECT_EQ(s.send("PATCH", "api/voicemail-messages/vm-1", json::object()).status, 400);
    EXPECT_EQ(s.send("PATCH", "api/voicemail-messages/vm-6", {{"read", true}}).status, 403);
    EXPECT_EQ(s.raw("DELETE", "api/voicemail-messages/vm-2").status, 204);
    EXPECT_TRUE(find("vm-2").is_null());
    EXPECT_EQ(s.raw("DELETE", "api/voicemail-messages/vm-2").status, 404);
}

TEST(DevServerRest, VoicemailAudioIsARealWav) {
    SignedIn s;
    const auto audio = s.get("api/voicemail-messages/vm-1/audio");
    ASSERT_EQ(audio.status, 200);
    EXPECT_EQ(audio.header("Content-Type"), "audio/wav");
    const auto& wav = audio.body;
    ASSERT_GT(wav.size(), 44);
    EXPECT_EQ(wav.left(4), "RIFF");
    EXPECT_EQ(wav.mid(8, 8), "WAVEfmt ");
    EXPECT_EQ(wav.mid(36, 4), "data");
    const auto le32 = [&](int at) {
        return quint32(quint8(wav[at])) | quint32(quint8(wav[at + 1])) << 8 |
               quint32(quint8(wav[at + 2])) << 16 | quint32(quint8(wav[at + 3])) << 24;
    };
    EXPECT_EQ(le32(40), quint32(wav.size() - 44));
    EXPECT_EQ(le32(24), 8000u);
    // vm-1 lasts 34 seconds: 8000 samples of 2 bytes each per second.
    EXPECT_EQ(wav.size() - 44, 34 * 8000 * 2);
    int silent = 0;
    for (int i = 44; i + 1 < wav.size(); i += 2)
        silent += (wav[i] == 0 && wav[i + 1] == 0);
    EXPECT_LT(silent, (wav.size() - 44) / 2); // mostly sound, with pauses
    EXPECT_GT(silent, 0);
    EXPECT_EQ(s.get("api/voicemail-messages/vm-404/audio").status, 404);
}

TEST(DevServerRest, TheCallLogPagesBackOverSixWeeks) {
    SignedIn s;
    std::vector<json> rows;
    std::string before;
    for (int page = 0; page < 20; ++page) {
        QString path = "api/calls?mine=1&limit=50";
        if (!before.empty()) {
            // Encoded as the client does it: only letters and digits stay as they are.
            path += "&before=" + QString::fromLatin1(QUrl::toPercentEncoding(
                                     QString::fromStdString(before), {}, "-._~"));
        }
        const auto answer = s.get(path);
        ASSERT_EQ(answer.status, 200) << answer.body.toStdString();
        const auto calls = answer.json().at("calls");
        for (const auto& row : calls)
            rows.push_back(row);
        if (calls.size() < 50)
            break;
        before = calls.back().at("startAt");
    }
    ASSERT_GE(rows.size(), 200u);
    std::set<std::string> results, directions, ids;
    int withMine = 0, withoutMine = 0, voicemail = 0, elsewhere = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        const auto& row = rows[i];
        ids.insert(row.at("callUuid").get<std::string>());
        for (const char* key : {"from", "to", "direction", "startAt"}) {
            EXPECT_TRUE(row.at(key).is_string()) << key;
        }
        results.insert(row.value("result", ""));
        directions.insert(row.at("direction").get<std::string>());
        (row.contains("mine") ? withMine : withoutMine)++;
        voicemail += row.value("voicemail", false) ? 1 : 0;
        elsewhere += row.contains("answeredBy") && row.contains("mine") &&
                             !row.at("mine").at("answeredByMe").get<bool>()
                         ? 1
                         : 0;
        if (i > 0) {
            const auto newer = QDateTime::fromString(
                QString::fromStdString(rows[i - 1].at("startAt")), Qt::ISODateWithMs);
            const auto older =
                QDateTime::fromString(QString::fromStdString(row.at("startAt")), Qt::ISODateWithMs);
            EXPECT_LE(older, newer);
        }
    }
    EXPECT_EQ(ids.size(), rows.size());
    EXPECT_TRUE(directions.contains("inbound"));
    EXPECT_TRUE(directions.contains("outbound"));
    for (const char* r : {"answered", "missed", "voicemail", "answered_elsewhere"}) {
        EXPECT_TRUE(results.contains(r)) << r;
    }
    EXPECT_GT(withMine, 0);
    EXPECT_GT(withoutMine, 0);
    EXPECT_GT(voicemail, 0);
    EXPECT_GT(elsewhere, 0);
    const auto oldest =
        QDateTime::fromString(QString::fromStdString(rows.back().at("startAt")), Qt::ISODateWithMs);
    EXPECT_GT(oldest.daysTo(QDateTime::currentDateTimeUtc()), 30);
    EXPECT_EQ(s.get("api/calls?mine=1&limit=50&before=garbage").status, 400);
}

TEST(DevServerRest, QueueMembershipsAndAgentChanges) {
    SignedIn s;
    const auto queues = s.get("api/me/queues").json();
    ASSERT_EQ(queues.size(), 2u);
    EXPECT_EQ(queues[0], (json{{"id", "q-support"},
                               {"name", "Support queue"},
                               {"loggedIn", true},
                               {"paused", false},
                               {"waiting", 2}}));
    EXPECT_EQ(queues[1].at("paused"), true);
    EXPECT_EQ(s.send("POST", "api/queues/q-support/agent", {{"paused", true}}).status, 204);
    EXPECT_EQ(s.get("api/me/queues").json()[0].at("paused"), true);
    EXPECT_EQ(s.send("POST", "api/queues/q-support/agent", {{"loggedIn", false}}).status, 204);
    const auto after = s.get("api/me/queues").json()[0];
    EXPECT_EQ(after.at("loggedIn"), false);
    EXPECT_EQ(after.at("paused"), false);
    EXPECT_EQ(s.send("POST", "api/queues/q-support/agent", {{"paused", 1}}).status, 400);
    EXPECT_EQ(s.send("POST", "api/queues/q-none/agent", {{"paused", true}}).status, 404);
    SignedIn other({}, "u-010");
    EXPECT_TRUE(other.get("api/me/queues").json().empty());
    EXPECT_EQ(other.send("POST", "api/queues/q-support/agent", {{"paused", true}}).status, 403);
}

TEST(DevServerRest, BadInputGetsClearAnswers) {
    SignedIn s;
    const auto malformed =
        s.raw("PUT", "api/me/forwarding", "{not json", {{"Content-Type", "application/json"}});
    EXPECT_EQ(malformed.status, 400);
    EXPECT_FALSE(malformed.json().at("message").get<std::string>().empty());
    EXPECT_EQ(s.raw("PATCH", "api/users/u-001", "{\"dnd\":true}", {{"Content-Type", "text/plain"}})
                  .status,
              415);
    EXPECT_EQ(
        s.raw("PATCH", "api/users/u-001", "[true]", {{"Content-Type", "application/json"}}).status,
        400);
    EXPECT_EQ(s.get("api/nothing-here").status, 404);
    const auto wrong = s.raw("DELETE", "api/me");
    EXPECT_EQ(wrong.status, 405);
    EXPECT_EQ(wrong.header("Allow"), "GET");
    const QByteArray huge(8 * 1024 * 1024 + 1, 'x');
    const auto tooBig = s.raw("PUT", "api/me/avatar", huge, {{"Content-Type", "image/jpeg"}});
    EXPECT_EQ(tooBig.status, 413);
    // Still serving after all of it.
    QNetworkAccessManager fresh;
    EXPECT_EQ(httpRequest(fresh, "GET", s.server.url("api/me"), {}, bearer(s.tokens.access)).status,
              200);
}
