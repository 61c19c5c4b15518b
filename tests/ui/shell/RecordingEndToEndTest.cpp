#include "shell/Application.h"

#include "../../integration/devserver/PhoneKit.h"
#include "../../integration/session/BrowserKit.h"
#include "PulseAudioServer.h"
#include "Services.h"

#include <QDir>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

// The record pill of the call window on a real call: the app in this process
// signed in on rz-devserver, registered at its kamailio, talking to the echo
// test through the relay; the pill clicked as a person clicks it, and the
// recording read back from the server's own model.
namespace {

class RecordingEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Application::loadFonts());
        settings.setUrl("rz.server", server.url());
        settings.setText("sip.caFile", server.caFile());
        app = std::make_unique<Application>(settings, secrets);
        // As at launch: the call window opens once the main window is up.
        ASSERT_TRUE(app->showMainWindow());
        useSigningInBrowser(app->session());
        app->session().signIn();
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return app->phone().isRegistered() || app->session().hasError(); }, 20000))
            << app->phone().registrationText().toStdString();
        ASSERT_FALSE(app->session().hasError()) << app->session().errorText().toStdString();
        app->phone().dial("999");
        // The server's call, on "calls:mine", is what the pill records.
        ASSERT_TRUE(QTest::qWaitFor(
            [&] {
                return app->phone().activeCall() &&
                       app->phone().activeCall()->status == Phone::ActiveCall::Status::connected &&
                       app->session().live().currentCall().has_value();
            },
            20000));
        ASSERT_TRUE(QTest::qWaitFor([&] { return app->callWindow() != nullptr; }, 5000));
        window = app->callWindow();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window));
        pill = findItem("recordPill");
        ASSERT_NE(pill, nullptr);
        ASSERT_TRUE(QTest::qWaitFor([&] { return pill->isVisible(); }, 5000));
    }

    void TearDown() override {
        if (app) {
            app->phone().hangUpActive();
        }
    }

    QQuickItem* findItem(const char* name) const {
        QList<QQuickItem*> pending{window->contentItem()};
        while (!pending.isEmpty()) {
            QQuickItem* next = pending.takeFirst();
            if (next->objectName() == QLatin1String(name)) {
                return next;
            }
            pending += next->childItems();
        }
        return nullptr;
    }

    QString label() const {
        for (QObject* child : pill->findChildren<QObject*>()) {
            if (child->objectName() == QLatin1String("recordPillLabel")) {
                return child->property("text").toString();
            }
        }
        return {};
    }

    void press() {
        const QPointF centre = pill->mapToScene(QPointF(pill->width() / 2, pill->height() / 2));
        QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
    }

    // The recording flag of the user's one call in the server's model; absent when unset.
    std::optional<bool> recordedOnServer() {
        const auto model = server.control("GET", "model");
        for (const auto& entry : model.at("calls")) {
            if (entry.at("owner") == "u-001") {
                const auto& call = entry.at("call");
                return call.contains("recording") ? std::optional(call.at("recording").get<bool>())
                                                  : std::nullopt;
            }
        }
        return std::nullopt;
    }

    TempHome home;
    PrivateBus bus;
    PulseAudioServer pulse{
        {"load-module module-null-sink sink_name=speaker rate=48000 channels=1 norewinds=1",
         "load-module module-sine-source source_name=mic rate=48000 frequency=1000",
         "set-default-sink speaker", "set-default-source mic"}};
    kit::PhoneServer server{{"--auto-approve", "u-001"}};
    MemorySettingsStore settings;
    MemorySecureStore secrets;
    std::unique_ptr<Application> app;
    QQuickWindow* window = nullptr;
    QQuickItem* pill = nullptr;
};

} // namespace

TEST_F(RecordingEndToEnd, ThePillStartsTheRecordingOnTheServerAndAgainStopsIt) {
    EXPECT_EQ(label(), "Record");
    EXPECT_NE(recordedOnServer(), std::optional(true));

    press();
    ASSERT_TRUE(QTest::qWaitFor([&] { return recordedOnServer() == std::optional(true); }, 5000));
    // The pill changes when the live updates say so, not before.
    ASSERT_TRUE(QTest::qWaitFor([&] { return label() == "Recording"; }, 5000))
        << label().toStdString();
    QDir().mkpath(VELNOR_SCREENSHOTS);
    window->grabWindow().save(QString(VELNOR_SCREENSHOTS) + "/record-pill-real-call.png");

    press();
    ASSERT_TRUE(QTest::qWaitFor([&] { return recordedOnServer() == std::optional(false); }, 5000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return label() == "Record"; }, 5000))
        << label().toStdString();
    EXPECT_FALSE(app->session().hasError());
}

TEST_F(RecordingEndToEnd, ARefusalLeavesThePillAsItWasAndShowsTheServersSentence) {
    server.control("POST", "faults",
                   {{"method", "POST"},
                    {"path", "api/calls/*"},
                    {"status", 403},
                    {"body", R"({"statusMessage":"Not allowed"})"}});
    press();
    ASSERT_TRUE(QTest::qWaitFor([&] { return app->session().hasError(); }, 5000));
    EXPECT_EQ(app->session().errorText(), "Not allowed");
    // The main window's alert says it.
    QObject* message = app->mainWindow()->findChild<QObject*>("errorMessage");
    ASSERT_NE(message, nullptr);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return message->property("text").toString() == "Not allowed"; }, 2000))
        << message->property("text").toString().toStdString();
    EXPECT_EQ(label(), "Record");
    EXPECT_NE(recordedOnServer(), std::optional(true));

    // The next press, with the server willing again, records.
    press();
    EXPECT_TRUE(QTest::qWaitFor([&] { return label() == "Recording"; }, 5000))
        << label().toStdString();
    EXPECT_EQ(recordedOnServer(), std::optional(true));
}
