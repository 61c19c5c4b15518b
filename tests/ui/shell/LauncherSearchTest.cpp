#include "CallLab.h"

#include "history/DirectoryCache.h"

#include <QFile>

#include <gtest/gtest.h>

// The desktop's launchers asking the running app over its session bus with
// gdbus, as GNOME Shell and KRunner call it, and a chosen result placing a
// real call through kamailio to a colleague's phone.
namespace {

class LauncherSearch : public testing::Test, public CallLab {
protected:
    void SetUp() override {
        // A colleague whose extension is the lab's phone "bob".
        server.control("POST", "users",
                       {{"id", "u-bob"}, {"name", "Bob Lab"}, {"extension", "bob"}});
        ASSERT_TRUE(CallLab::startApp(VELNOR_APP_PATH))
            << property("Registration").toString().toStdString();
        // The app has read the directory and written the launcher's file.
        ASSERT_TRUE(waitFor(
            [] { return !DirectoryCache::entitiesFor(QStringList{"bob"}).isEmpty(); }, 15000));
    }

    // One method call with gdbus, exactly as a shell makes it; its printed answer.
    QString gdbus(const QString& path, const QString& method, const QStringList& arguments) {
        QProcess tool;
        tool.setProcessEnvironment(environment());
        tool.start("gdbus", QStringList{"call", "--session", "--dest", "net.velnor.rz",
                                        "--object-path", path, "--method", method} +
                                arguments);
        if (!tool.waitForFinished(10000)) {
            tool.kill();
            tool.waitForFinished();
            return QStringLiteral("timed out");
        }
        return QString::fromUtf8(tool.readAllStandardOutput() + tool.readAllStandardError())
            .trimmed();
    }

    QString gnome(const QString& method, const QStringList& arguments) {
        return gdbus("/net/velnor/rz/SearchProvider", "org.gnome.Shell.SearchProvider2." + method,
                     arguments);
    }
    QString krunner(const QString& method, const QStringList& arguments) {
        return gdbus("/net/velnor/rz/runner", "org.kde.krunner1." + method, arguments);
    }

    Baresip bob{dir.path(), "bob", Baresip::Role::echo, kamailio, tone, certs.trustedCa};
};

} // namespace

TEST_F(LauncherSearch, GnomeShellFindsBenByHisFirstName) {
    EXPECT_EQ(gnome("GetInitialResultSet", {"['ben']"}), "(['202'],)");
}

TEST_F(LauncherSearch, GnomeShellNarrowsEarlierResultsAsMoreIsTyped) {
    EXPECT_EQ(gnome("GetSubsearchResultSet", {"['202', '203']", "['ben', 'oka']"}), "(['202'],)");
    EXPECT_EQ(gnome("GetSubsearchResultSet", {"['203']", "['ben']"}), "(@as [],)");
}

TEST_F(LauncherSearch, MullerFindsFrankMueller) {
    const QString answer = gnome("GetInitialResultSet", {"['muller']"});
    ASSERT_TRUE(answer.startsWith("(['")) << answer.toStdString();
    const QString metas = gnome("GetResultMetas", {answer.mid(1, answer.indexOf(']'))});
    EXPECT_TRUE(metas.contains("'name': <'Frank Müller'>")) << metas.toStdString();
}

TEST_F(LauncherSearch, ResultMetasGiveNameExtensionAndPresence) {
    server.control("PATCH", "users/u-002", {{"presence", "busy"}});
    ASSERT_TRUE(waitFor(
        [&] {
            return gnome("GetResultMetas", {"['202']"}).contains("Colleague · 202 · On a call");
        },
        10000))
        << gnome("GetResultMetas", {"['202']"}).toStdString();
    const QString metas = gnome("GetResultMetas", {"['202', '600']"});
    EXPECT_TRUE(metas.contains("'id': <'202'>")) << metas.toStdString();
    EXPECT_TRUE(metas.contains("'name': <'Ben Okafor'>"));
    EXPECT_TRUE(metas.contains("'gicon': <'net.velnor.rz'>"));
    EXPECT_TRUE(metas.contains("'description': <'Group · 600'>"));
    EXPECT_LT(metas.indexOf("'202'"), metas.indexOf("'600'"));
}

TEST_F(LauncherSearch, ActivatingAResultCallsThatColleague) {
    EXPECT_EQ(gnome("ActivateResult", {"bob", "['bob']", "0"}), "()");
    ASSERT_TRUE(waitFor([&] { return callStatus() == "connected"; }, 15000))
        << callStatus().toStdString();
    EXPECT_EQ(qdbus_cast<QVariantMap>(property("ActiveCall")).value("number").toString(), "bob");
    call("HangUp");
    bob.waitEvent({"CALL_CLOSED"});
}

TEST_F(LauncherSearch, KRunnerMatchesBenAndRunCallsTheColleague) {
    const QString matches = krunner("Match", {"ben"});
    EXPECT_TRUE(matches.contains("('202', 'Ben Okafor', 'net.velnor.rz', 30, 0.5"))
        << matches.toStdString();
    EXPECT_TRUE(matches.contains("'subtext': <'Colleague · 202"));
    EXPECT_TRUE(krunner("Match", {"Ben Okafor"}).contains("'Ben Okafor', 'net.velnor.rz', 100"));
    EXPECT_EQ(krunner("Actions", {}), "(@a(sss) [],)");
    EXPECT_EQ(krunner("Run", {"bob", ""}), "()");
    ASSERT_TRUE(waitFor([&] { return callStatus() == "connected"; }, 15000))
        << callStatus().toStdString();
    call("HangUp");
    bob.waitEvent({"CALL_CLOSED"});
}

TEST_F(LauncherSearch, AnUnknownResultCallsNobody) {
    EXPECT_EQ(gnome("ActivateResult", {"nobody", "['x']", "0"}), "()");
    EXPECT_EQ(krunner("Run", {"nobody", ""}), "()");
    // Both calls have been answered, so anything they started has begun.
    EXPECT_TRUE(callStatus().isEmpty());
}
