import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The tray icon's panel: a compact phone for use without the main window.
Window {
    id: panel

    required property QtObject session
    required property QtObject phone
    required property QtObject shell

    readonly property var call: phone.activeCall
    readonly property bool signedIn: session.stateName === "signedIn"
    property string number: ""

    function dialNumber(text) {
        const trimmed = text.trim()
        if (trimmed.length === 0 || !phone.registered)
            return
        number = ""
        phone.dial(trimmed)
    }

    title: "velnor RZ"
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
    width: 320
    height: content.implicitHeight + 24
    color: Theme.windowBackground
    // A click elsewhere closes it, as a menu would.
    onActiveChanged: if (!active) hide()

    Shortcut { sequence: "Escape"; onActivated: panel.hide() }
    Shortcut { sequence: "Ctrl+O"; onActivated: panel.shell.openMainWindow() }
    Shortcut { sequence: "Ctrl+,"; onActivated: panel.shell.openSettings() }
    Shortcut { sequence: "Ctrl+Q"; onActivated: panel.shell.quit() }

    Rectangle {
        anchors.fill: parent
        color: "transparent"
        border.color: Theme.separator
        border.width: 1
    }

    ColumnLayout {
        id: content
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 12
        spacing: 10

        // Who is signed in, and whether the phone is online.
        RowLayout {
            objectName: "trayHeader"
            spacing: 10
            visible: panel.signedIn
            Avatar {
                name: panel.session.userName
                size: 32
                shell: panel.shell
            }
            Text {
                Layout.fillWidth: true
                text: panel.session.userName
                elide: Text.ElideRight
                color: Theme.primaryText
                font.family: Theme.fontFamily
                font.weight: Font.DemiBold
                font.pixelSize: 14
            }
            RegistrationBadge {
                shell: panel.shell
            }
        }
        Text {
            objectName: "trayNotSignedIn"
            visible: !panel.signedIn
            text: qsTr("Not signed in")
            color: Theme.secondaryText
            font.family: Theme.fontFamily
            font.pixelSize: 14
        }

        // The call in front, with its few controls.
        RowLayout {
            objectName: "trayCallRow"
            visible: panel.phone.hasActiveCall
            spacing: 8
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 0
                Text {
                    Layout.fillWidth: true
                    text: panel.call.name || panel.call.number || ""
                    elide: Text.ElideRight
                    color: Theme.primaryText
                    font.family: Theme.fontFamily
                    font.weight: Font.DemiBold
                    font.pixelSize: 13
                }
                Text {
                    text: {
                        switch (panel.call.status) {
                        case "incoming": return qsTr("Incoming call")
                        case "calling": return qsTr("Calling…")
                        case "ringing": return qsTr("Ringing…")
                        case "connected": return qsTr("Connected")
                        default: return ""
                        }
                    }
                    color: Theme.secondaryText
                    font.family: Theme.fontFamily
                    font.pixelSize: 12
                }
            }
            RoundButton {
                Accessible.onPressAction: clicked()
                objectName: "trayDecline"
                visible: panel.call.status === "incoming"
                icon.source: Icons.of("phone.down.fill")
                icon.color: "white"
                palette.button: Theme.danger
                Accessible.name: qsTr("Decline")
                ToolTip.text: qsTr("Decline")
                ToolTip.visible: hovered
                onClicked: panel.phone.hangUpActive()
            }
            RoundButton {
                Accessible.onPressAction: clicked()
                objectName: "trayAnswer"
                visible: panel.call.status === "incoming"
                icon.source: Icons.of("phone.fill")
                icon.color: "white"
                palette.button: Theme.positive
                Accessible.name: qsTr("Answer")
                ToolTip.text: qsTr("Answer")
                ToolTip.visible: hovered
                onClicked: panel.phone.answer()
            }
            RoundButton {
                Accessible.onPressAction: clicked()
                objectName: "trayMute"
                visible: panel.phone.hasActiveCall && panel.call.status !== "incoming"
                icon.source: Icons.of(panel.call.muted ? "mic.fill" : "mic.slash.fill")
                icon.color: Theme.primaryText
                Accessible.name: panel.call.muted ? qsTr("Unmute") : qsTr("Mute")
                ToolTip.text: Accessible.name
                ToolTip.visible: hovered
                onClicked: panel.phone.setActiveMuted(!panel.call.muted)
            }
            RoundButton {
                Accessible.onPressAction: clicked()
                objectName: "trayEnd"
                visible: panel.phone.hasActiveCall && panel.call.status !== "incoming"
                icon.source: Icons.of("phone.down.fill")
                icon.color: "white"
                palette.button: Theme.danger
                Accessible.name: qsTr("End")
                ToolTip.text: qsTr("End")
                ToolTip.visible: hovered
                onClicked: panel.phone.hangUpActive()
            }
            RoundButton {
                Accessible.onPressAction: clicked()
                objectName: "trayShowCall"
                icon.source: Icons.of("chevron.right")
                icon.color: Theme.secondaryText
                flat: true
                Accessible.name: qsTr("Show the call")
                ToolTip.text: qsTr("Show the call")
                ToolTip.visible: hovered
                onClicked: panel.shell.openCallWindow()
            }
        }

        // A number to dial, while there is no call.
        RowLayout {
            visible: !panel.phone.hasActiveCall
            spacing: 8
            TextField {
                id: numberField
                objectName: "trayNumber"
                Layout.fillWidth: true
                placeholderText: qsTr("Number or extension")
                text: panel.number
                onTextEdited: panel.number = text
                onAccepted: panel.dialNumber(text)
                Accessible.name: placeholderText
                color: Theme.primaryText
                placeholderTextColor: Theme.secondaryText
                palette.base: Theme.fieldBackground
                palette.text: Theme.primaryText
            }
            RoundButton {
                Accessible.onPressAction: clicked()
                objectName: "trayCall"
                enabled: panel.number.trim().length > 0 && panel.phone.registered
                icon.source: Icons.of("phone.fill")
                icon.color: "white"
                palette.button: Theme.positive
                Accessible.name: qsTr("Call")
                onClicked: panel.dialNumber(panel.number)
            }
        }

        Switch {
            Accessible.onPressAction: { toggle(); toggled() }
            objectName: "trayDnd"
            Layout.fillWidth: true
            text: qsTr("Do not disturb")
            // The label's colour by group: dimmed while there is no one signed in.
            palette.active.text: Theme.primaryText
            palette.inactive.text: Theme.primaryText
            palette.disabled.text: Theme.secondaryText
            // Shown at once; a refusal by the server turns it back.
            enabled: panel.session.hasMe
            checked: panel.session.dnd
            onToggled: {
                panel.session.setDndFromScreen(checked)
                // The flag stays the session's: a rollback shows here too.
                checked = Qt.binding(() => panel.session.dnd)
            }
            palette.base: Theme.fieldBackground
            Accessible.name: text
        }

        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }

        RowSectionHeader {
            visible: panel.shell.recent.length > 0
            title: qsTr("Recent")
        }
        Repeater {
            model: panel.shell.recent
            ItemDelegate {
                id: recentRow
                Accessible.onPressAction: clicked()
                required property var modelData
                Layout.fillWidth: true
                hoverEnabled: true
                Accessible.name: qsTr("Call %1").arg(modelData.name)
                onClicked: panel.phone.dial(modelData.number)
                background: Rectangle {
                    radius: 4
                    color: recentRow.hovered || recentRow.visualFocus ? Theme.selection
                                                                      : "transparent"
                }
                contentItem: RowLayout {
                    spacing: 8
                    TintedIcon {
                        name: modelData.incoming ? "phone.arrow.down.left" : "phone.arrow.up.right"
                        size: 14
                        color: Theme.secondaryText
                    }
                    Text {
                        Layout.fillWidth: true
                        text: modelData.name
                        elide: Text.ElideRight
                        color: Theme.primaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 13
                    }
                    Text {
                        text: modelData.date
                        color: Theme.secondaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 11
                    }
                }
            }
        }

        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }

        Repeater {
            model: [
                { title: qsTr("Open velnor RZ"), shortcut: "Ctrl+O", name: "trayOpen" },
                { title: qsTr("Settings"), shortcut: "Ctrl+,", name: "traySettings" },
                { title: qsTr("Quit velnor RZ"), shortcut: "Ctrl+Q", name: "trayQuit" }
            ]
            ItemDelegate {
                id: menuRow
                Accessible.onPressAction: clicked()
                required property var modelData
                objectName: modelData.name
                Layout.fillWidth: true
                hoverEnabled: true
                Accessible.name: modelData.title
                onClicked: {
                    if (modelData.name === "trayOpen")
                        panel.shell.openMainWindow()
                    else if (modelData.name === "traySettings")
                        panel.shell.openSettings()
                    else
                        panel.shell.quit()
                }
                background: Rectangle {
                    radius: 4
                    color: menuRow.hovered || menuRow.visualFocus ? Theme.selection : "transparent"
                }
                contentItem: RowLayout {
                    Text {
                        Layout.fillWidth: true
                        text: menuRow.modelData.title
                        color: Theme.primaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 13
                    }
                    Text {
                        text: menuRow.modelData.shortcut
                        color: Theme.secondaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 12
                    }
                }
            }
        }
    }
}
