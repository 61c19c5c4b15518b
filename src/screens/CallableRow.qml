import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A row that calls: a call button at its end, a double click, and a
// context menu with "Call" — all only while it is enabled.
Item {
    id: callable

    property bool callEnabled: true
    // The row it makes callable, usually a ListRow.
    default property Item content: null
    signal call()

    implicitHeight: content ? content.implicitHeight : 56
    implicitWidth: 320
    Accessible.role: Accessible.ListItem
    Accessible.name: content ? content.Accessible.name : ""

    RowLayout {
        anchors.fill: parent
        anchors.rightMargin: 16
        spacing: 10

        Item {
            id: holder
            Layout.fillWidth: true
            Layout.fillHeight: true
            children: callable.content ? [callable.content] : []
        }
        RowCallButton {
            objectName: "rowCallButton"
            visible: callable.callEnabled
            onClicked: callable.call()
        }
    }

    Component.onCompleted: if (content) content.anchors.fill = holder

    TapHandler {
        acceptedButtons: Qt.LeftButton
        onDoubleTapped: if (callable.callEnabled) callable.call()
    }
    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: if (callable.callEnabled) menu.popup()
    }
    Menu {
        id: menu
        MenuItem {
            Accessible.onPressAction: { triggered(); if (menu) menu.close() }
            text: qsTr("Call")
            icon.source: Icons.of("phone")
            onTriggered: callable.call()
        }
    }
}
