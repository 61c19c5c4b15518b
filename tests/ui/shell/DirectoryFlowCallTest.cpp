#include "../../integration/phone/TwoCallsLab.h"

#include "QmlWindow.h"
#include "shell/Application.h"
#include "shell/AvatarImageProvider.h"

#include <gtest/gtest.h>

// A call flow of the directory called from its row, through rz-devserver's
// own phone system: the flow's extension rings the colleague behind it, who
// answers.
TEST(FlowCall, AFlowsRowCallsItsExtensionAndTheColleagueBehindItAnswers) {
    ASSERT_TRUE(Application::loadFonts());
    TwoCallsLab lab;
    lab.signInAndRegister();
    ASSERT_TRUE(waitFor([&] { return lab.session->hasDirectory(); }, 10000));

    QmlWindow host;
    host.engine.addImageProvider(AvatarImageProvider::name,
                                 new AvatarImageProvider(*lab.session));
    const QString error = host.show(
        " property QtObject session\n property QtObject phone\n width: 920; height: 900\n"
        " DirectoryView { anchors.fill: parent; session: w.session; phone: w.phone; shell: null }",
        {{"session", QVariant::fromValue<QObject*>(lab.session.get())},
         {"phone", QVariant::fromValue<QObject*>(lab.phone.get())}});
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();

    // The list is long: the flow's row is brought into view as a person scrolls to it.
    QQuickItem* list = nullptr;
    ASSERT_TRUE(waitFor(
        [&] {
            list = host.find([](QQuickItem* i) {
                return i->objectName() == "directoryList" && i->isVisible();
            });
            return list != nullptr;
        },
        10000));
    QMetaObject::invokeMethod(list, "positionViewAtEnd");
    QQuickItem* flow = nullptr;
    ASSERT_TRUE(waitFor(
        [&] {
            flow = findItem(list, [](QQuickItem* i) {
                return i->objectName() == "directoryRow" &&
                       i->property("name").toString() == "After hours";
            });
            return flow != nullptr && flow->isVisible();
        },
        10000));
    EXPECT_EQ(flow->property("extension").toString(), "701");
    ASSERT_TRUE(flow->property("callEnabled").toBool());
    QQuickItem* button = findItem(
        flow, [](QQuickItem* i) { return i->objectName() == "rowCallButton" && i->isVisible(); });
    ASSERT_NE(button, nullptr);
    host.click(button);

    // Chloé answers; the phone system shows the flow's call connected to her.
    ASSERT_TRUE(waitFor(
        [&] {
            return status(*lab.phone) == Status::connected &&
                   lab.phone->activeCall()->remote == "701";
        },
        20000))
        << lab.phone->lastErrorText().toStdString();
    bool connected = false;
    const auto state = lab.server.control("GET", "phone");
    for (const auto& dialog : state.at("dialogs")) {
        // Once answered, the call is with the one who took it.
        if (dialog.at("dialled") == "701" && dialog.at("state") == "connected" &&
            dialog.at("to").at("userId") == "u-003" && dialog.at("calls").contains("u-003")) {
            connected = true;
        }
    }
    EXPECT_TRUE(connected) << state.at("dialogs").dump();
    lab.phone->hangUpActive();
    ASSERT_TRUE(waitFor([&] { return !lab.phone->activeCall(); }));
}
