import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The signed-in main window: the sections in a sidebar, the chosen one beside it.
Item {
    id: root

    required property QtObject session
    required property QtObject phone
    required property QtObject shell

    // The sidebar's rows; queues only for a user who is an agent somewhere.
    readonly property var sections: [
        { id: "recents", label: qsTr("Recents"), icon: "clock", badge: 0 },
        { id: "directory", label: qsTr("Directory"), icon: "person.2", badge: 0 },
        { id: "keypad", label: qsTr("Keypad"), icon: "circle.grid.3x3", badge: 0 },
        { id: "voicemail", label: qsTr("Voicemail"), icon: "recordingtape",
          badge: root.shell.voicemailBadge },
        { id: "queues", label: qsTr("Queues"), icon: "person.3.sequence",
          badge: root.shell.queuesBadge }
    ].filter(s => s.id !== "queues" || root.shell.hasQueues)

    Rectangle {
        id: sidebar
        objectName: "sidebar"
        width: 220
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        color: Theme.fieldBackground
        Accessible.role: Accessible.List
        Accessible.name: qsTr("Sections")

        ColumnLayout {
            anchors.fill: parent
            anchors.margins: 10
            spacing: 2

            Repeater {
                model: root.sections

                ItemDelegate {
                    id: row
                    Accessible.onPressAction: clicked()
                    required property var modelData
                    required property int index
                    objectName: "section_" + modelData.id
                    Layout.fillWidth: true
                    highlighted: root.shell.section === modelData.id
                    focusPolicy: Qt.StrongFocus
                    Accessible.role: Accessible.PageTab
                    Accessible.name: modelData.badge > 0
                                     ? modelData.label + ", " + modelData.badge
                                     : modelData.label
                    onClicked: root.shell.section = modelData.id
                    // Ctrl+1 and on, in the sidebar's order.
                    Shortcut {
                        id: sectionKey
                        sequence: "Ctrl+" + (row.index + 1)
                        onActivated: root.shell.section = row.modelData.id
                    }
                    ToolTip.visible: hovered
                    ToolTip.delay: 600
                    ToolTip.text: row.modelData.label + " (" + sectionKey.nativeText + ")"

                    background: Rectangle {
                        radius: 6
                        color: row.highlighted ? Theme.selection
                                               : row.hovered ? Theme.separator : "transparent"
                        border.width: row.visualFocus ? 2 : 0
                        border.color: Theme.accent
                    }
                    contentItem: RowLayout {
                        spacing: 10
                        TintedIcon {
                            name: row.modelData.icon
                            size: 16
                            color: row.highlighted ? Theme.accent : Theme.secondaryText
                        }
                        Text {
                            Layout.fillWidth: true
                            text: row.modelData.label
                            color: Theme.primaryText
                            font.family: Theme.fontFamily
                            font.pixelSize: 14
                            font.weight: row.highlighted ? Font.DemiBold : Font.Normal
                            Accessible.ignored: true
                        }
                        // A count of 0 shows nothing.
                        Rectangle {
                            objectName: "badge_" + row.modelData.id
                            visible: row.modelData.badge > 0
                            implicitWidth: Math.max(20, count.implicitWidth + 10)
                            implicitHeight: 18
                            radius: 9
                            color: Theme.accent
                            Text {
                                id: count
                                anchors.centerIn: parent
                                text: row.modelData.badge
                                color: "white"
                                font.family: Theme.fontFamily
                                font.pixelSize: 11
                                font.weight: Font.DemiBold
                                Accessible.ignored: true
                            }
                        }
                    }
                }
            }

            Item { Layout.fillHeight: true }

            RegistrationBadge {
                objectName: "registrationBadge"
                Layout.alignment: Qt.AlignLeft
                shell: root.shell
            }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "settingsButton"
                Layout.fillWidth: true
                flat: true
                text: qsTr("Settings")
                icon.source: Icons.of("gearshape")
                icon.color: Theme.secondaryText
                icon.width: 16
                icon.height: 16
                Accessible.name: text
                onClicked: root.shell.openSettings()
                ToolTip.visible: hovered
                ToolTip.delay: 600
                ToolTip.text: text + " (" + settingsKey.nativeText + ")"
                Shortcut {
                    id: settingsKey
                    sequence: "Ctrl+,"
                    onActivated: root.shell.openSettings()
                }
            }
        }
    }

    Rectangle {
        anchors.left: sidebar.right
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        width: 1
        color: Theme.separator
    }

    // The chosen section; a stored section the sidebar does not list (queues
    // for a user without any) still shows, with no row selected.
    Loader {
        id: detail
        objectName: "sectionContent"
        anchors.left: sidebar.right
        anchors.leftMargin: 1
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.bottom: parent.bottom
        focus: true
        // The chosen section takes the keyboard, so that the keypad works at once.
        onLoaded: item.forceActiveFocus()
        sourceComponent: {
            switch (root.shell.section) {
            case "directory": return directory
            case "keypad": return keypad
            case "voicemail": return voicemail
            case "queues": return queues
            default: return recents
            }
        }
    }

    Component {
        id: recents
        RecentsView {
            objectName: "recentsView"
            model: root.shell.recents
            shell: root.shell
        }
    }
    Component {
        id: directory
        DirectoryView {
            objectName: "directoryView"
            session: root.session
            phone: root.phone
            shell: root.shell
        }
    }
    Component {
        id: keypad
        KeypadView {
            objectName: "keypadView"
            phone: root.phone
            shell: root.shell
        }
    }
    Component {
        id: voicemail
        VoicemailView {
            objectName: "voicemailView"
            session: root.session
            phone: root.phone
            shell: root.shell
        }
    }
    Component {
        id: queues
        QueuesView {
            objectName: "queuesView"
            session: root.session
            shell: root.shell
        }
    }
}
