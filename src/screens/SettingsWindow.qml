import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The settings window: the user and their picture, do-not-disturb,
// forwarding, the state of the connections, this computer's behaviour, and
// the way out.
ApplicationWindow {
    id: window

    required property QtObject session
    required property QtObject phone
    required property QtObject shell
    readonly property QtObject settings: shell.settings
    // ColleagueContacts; the row is left out where none is given.
    property QtObject colleagues: null

    title: qsTr("Settings")
    width: 520
    height: 620
    minimumWidth: 460
    minimumHeight: 480
    color: Theme.windowBackground
    font.family: Theme.fontFamily
    // The controls draw in the app's own light or dark colours, also where
    // the desktop's palette says otherwise.
    // (Texts by colour group: a disabled control must look so.)
    palette.window: Theme.windowBackground
    palette.base: Theme.fieldBackground
    palette.button: Theme.fieldBackground
    palette.active.windowText: Theme.primaryText
    palette.active.text: Theme.primaryText
    palette.active.buttonText: Theme.primaryText
    palette.inactive.windowText: Theme.primaryText
    palette.inactive.text: Theme.primaryText
    palette.inactive.buttonText: Theme.primaryText
    palette.disabled.windowText: Theme.secondaryText
    palette.disabled.text: Theme.secondaryText
    palette.disabled.buttonText: Theme.secondaryText

    ScrollView {
        id: scroller
        anchors.fill: parent
        contentWidth: availableWidth
        clip: true
        // The form is as wide as the window: only the vertical bar, and it
        // carries a name for screen readers.
        ScrollBar.horizontal.policy: ScrollBar.AlwaysOff
        ScrollBar.vertical: ScrollBar {
            parent: scroller
            x: scroller.mirrored ? 0 : scroller.width - width
            y: scroller.topPadding
            height: scroller.availableHeight
            Accessible.name: qsTr("Settings")
        }

        ColumnLayout {
            id: form
            width: scroller.availableWidth - 48
            x: 24
            spacing: 8

            Item { Layout.preferredHeight: 16 }

            // A failure the session reports (a refused picture, a failed
            // upload) shows here too, where the user just acted.
            Rectangle {
                objectName: "settingsError"
                Layout.fillWidth: true
                visible: window.session.hasError
                implicitHeight: errorLine.implicitHeight + 16
                radius: 6
                color: Qt.rgba(Theme.danger.r, Theme.danger.g, Theme.danger.b, 0.12)
                RowLayout {
                    id: errorLine
                    anchors.fill: parent
                    anchors.margins: 8
                    Label {
                        objectName: "settingsErrorText"
                        Layout.fillWidth: true
                        wrapMode: Text.Wrap
                        text: window.session.error
                        color: Theme.danger
                    }
                    ToolButton {
                        Accessible.onPressAction: clicked()
                        objectName: "settingsErrorDismiss"
                        icon.source: Icons.of("xmark")
                        icon.color: Theme.danger
                        Accessible.name: qsTr("Dismiss")
                        onClicked: window.session.clearError()
                    }
                }
            }

            // --- the user and their picture ---
            RowLayout {
                objectName: "userBlock"
                Layout.fillWidth: true
                visible: window.session.hasMe
                spacing: 14
                Item {
                    implicitWidth: 64
                    implicitHeight: 64
                    Avatar {
                        objectName: "ownAvatar"
                        name: window.session.userName
                        image: window.settings.avatarImage
                        size: 64
                        shell: window.shell
                    }
                    Rectangle {
                        objectName: "avatarBadge"
                        anchors.right: parent.right
                        anchors.bottom: parent.bottom
                        anchors.margins: -4
                        width: 22
                        height: 22
                        radius: 11
                        color: Theme.accent
                        border.width: 2
                        border.color: Theme.windowBackground
                        TintedIcon {
                            anchors.centerIn: parent
                            name: window.settings.uploading ? "arrow.up.circle.fill"
                                                             : "camera.circle.fill"
                            size: 12
                            color: "white"
                        }
                    }
                }
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 4
                    Label {
                        Layout.fillWidth: true
                        text: window.session.userName
                        elide: Text.ElideRight
                        color: Theme.primaryText
                        font.weight: Font.DemiBold
                        font.pixelSize: 16
                    }
                    RowLayout {
                        objectName: "extensionRow"
                        visible: window.settings.extension !== ""
                        spacing: 6
                        TintedIcon {
                            name: "number"
                            size: 14
                            color: Theme.secondaryText
                        }
                        Label {
                            text: qsTr("Extension")
                            color: Theme.secondaryText
                        }
                        Label {
                            objectName: "extensionValue"
                            text: window.settings.extension
                            color: Theme.primaryText
                        }
                    }
                    RowLayout {
                        spacing: 8
                        Button {
                            Accessible.onPressAction: clicked()
                            objectName: "changePictureButton"
                            text: qsTr("Change picture")
                            enabled: !window.settings.uploading
                            Accessible.name: text
                            onClicked: window.settings.choosePicture()
                        }
                        Button {
                            Accessible.onPressAction: clicked()
                            objectName: "removePictureButton"
                            visible: window.settings.hasAvatar
                            enabled: !window.settings.uploading
                            text: qsTr("Remove picture")
                            palette.buttonText: Theme.danger
                            Accessible.name: text
                            onClicked: window.settings.removePicture()
                        }
                    }
                }
            }
            Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator; visible: window.session.hasMe }
            // --- end of the user and their picture ---

            // --- do not disturb and forwarding ---
            RowLayout {
                Layout.fillWidth: true
                spacing: 10
                TintedIcon {
                    name: "moon.fill"
                    size: 16
                    color: Theme.purple
                }
                Switch {
                    Accessible.onPressAction: { toggle(); toggled() }
                    objectName: "dndSwitch"
                    Layout.fillWidth: true
                    text: qsTr("Do not disturb")
                    palette.base: Theme.fieldBackground
                    enabled: window.session.hasMe
                    checked: window.session.dnd
                    Accessible.name: text
                    onToggled: {
                        window.session.setDndFromScreen(checked)
                        // The flag stays the session's: a rollback shows here too.
                        checked = Qt.binding(() => window.session.dnd)
                    }
                }
            }
            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                color: Theme.secondaryText
                text: qsTr("Do not disturb: none of your phones rings, also not for group calls.")
            }
            ItemDelegate {
                Accessible.onPressAction: clicked()
                objectName: "forwardingRow"
                Layout.fillWidth: true
                enabled: window.session.hasMe
                Accessible.name: qsTr("Forwarding") + ", " + window.shell.forwardingSummary
                background: Rectangle {
                    radius: 6
                    color: parent.hovered ? Theme.fieldBackground : "transparent"
                    border.width: parent.visualFocus ? 2 : 0
                    border.color: Theme.accent
                }
                contentItem: RowLayout {
                    spacing: 10
                    TintedIcon {
                        name: "arrow.turn.up.right"
                        size: 16
                        color: Theme.accent
                    }
                    Label {
                        Layout.fillWidth: true
                        text: qsTr("Forwarding")
                        color: Theme.primaryText
                    }
                    Label {
                        objectName: "forwardingSummary"
                        text: window.shell.forwardingSummary
                        color: Theme.secondaryText
                    }
                    TintedIcon {
                        name: "chevron.right"
                        size: 12
                        color: Theme.secondaryText
                    }
                }
                onClicked: forwarding.openEditor()
            }
            Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }
            // --- end of do not disturb and forwarding ---

            // --- colleagues in contacts ---
            ColumnLayout {
                objectName: "colleaguesSection"
                Layout.fillWidth: true
                spacing: 8
                visible: window.colleagues !== null
                Loader {
                    objectName: "colleaguesRow"
                    Layout.fillWidth: true
                    active: window.colleagues !== null
                    visible: active
                    sourceComponent: ColleaguesToggle {
                        colleagues: window.colleagues
                    }
                }
            }
            // --- end of colleagues in contacts ---

            // --- status ---
            SectionTitle { text: qsTr("Status") }
            RowLayout {
                Layout.fillWidth: true
                Label {
                    Layout.fillWidth: true
                    text: qsTr("Phone")
                    color: Theme.primaryText
                }
                RegistrationBadge {
                    objectName: "statusRegistration"
                    shell: window.shell
                }
            }
            StatusLine {
                objectName: "statusSipUser"
                label: qsTr("SIP user")
                value: window.settings.sipUser
            }
            StatusLine {
                objectName: "statusServer"
                label: qsTr("Server")
                value: window.settings.sipServer
            }
            StatusLine {
                objectName: "statusLive"
                label: qsTr("Live updates")
                value: window.settings.liveStatus
            }
            Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }
            // --- end of status ---

            // --- sound devices ---
            SectionTitle { text: qsTr("Sound") }
            DeviceRow {
                objectName: "ringOutputRow"
                label: qsTr("Ringing device")
                rows: window.settings.sound.ringOutputs
                chosen: window.settings.sound.ringOutput
                onPicked: (name) => window.settings.sound.ringOutput = name
            }
            DeviceRow {
                objectName: "callOutputRow"
                label: qsTr("Call speaker")
                rows: window.settings.sound.callOutputs
                chosen: window.settings.sound.callOutput
                onPicked: (name) => window.settings.sound.callOutput = name
            }
            DeviceRow {
                objectName: "callInputRow"
                label: qsTr("Call microphone")
                rows: window.settings.sound.callInputs
                chosen: window.settings.sound.callInput
                onPicked: (name) => window.settings.sound.callInput = name
            }
            RowLayout {
                Layout.fillWidth: true
                spacing: 10
                Button {
                    Accessible.onPressAction: clicked()
                    objectName: "testCallButton"
                    text: qsTr("Test call")
                    enabled: window.phone.registered && !window.phone.hasActiveCall
                    Accessible.name: text
                    onClicked: window.settings.testCall()
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    color: Theme.secondaryText
                    text: qsTr("Calls the echo test: what you say comes back a moment later.")
                }
            }
            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                color: Theme.secondaryText
                text: window.settings.sound.listed
                      ? qsTr("A device that is unplugged is replaced by the system default until it is back. A change of the call's devices applies from the next call.")
                      : qsTr("The sound server has not answered yet; calls and the ring use the system default.")
            }
            Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }
            // --- end of sound devices ---

            // --- this computer ---
            SectionTitle { text: qsTr("App") }
            Switch {
                id: keep
                Accessible.onPressAction: { toggle(); toggled() }
                objectName: "keepInTraySwitch"
                Layout.fillWidth: true
                text: qsTr("Keep running in the tray when the window is closed")
                checked: window.shell.keepInTray
                onToggled: window.shell.keepInTray = checked
                Accessible.name: text
            }
            Label {
                objectName: "keepInTrayText"
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                color: Theme.secondaryText
                text: !window.shell.keepInTray
                      ? qsTr("Closing the window quits velnor RZ; calls then only reach your other devices.")
                      : window.shell.trayShown
                        ? qsTr("Closing the window keeps velnor RZ in the tray, so calls still reach this computer.")
                        : qsTr("This desktop shows no tray. Closing the window keeps velnor RZ running, so calls still reach this computer; start velnor RZ again to bring its window back.")
            }
            RowLayout {
                Layout.fillWidth: true
                spacing: 10
                TintedIcon {
                    name: "power"
                    size: 16
                    color: Theme.accent
                }
                Switch {
                    Accessible.onPressAction: { toggle(); toggled() }
                    objectName: "openAtLoginSwitch"
                    Layout.fillWidth: true
                    text: qsTr("Open at login")
                    checked: window.settings.openAtLogin
                    Accessible.name: text
                    onToggled: {
                        window.settings.setOpenAtLogin(checked)
                        // The entry on disk decides; a refused change turns it back.
                        checked = Qt.binding(() => window.settings.openAtLogin)
                    }
                }
            }
            Label {
                objectName: "loginErrorText"
                Layout.fillWidth: true
                visible: window.settings.loginError !== ""
                wrapMode: Text.Wrap
                color: Theme.secondaryText
                text: window.settings.loginError
            }
            Label {
                objectName: "globalShortcutsText"
                Layout.fillWidth: true
                Layout.topMargin: 8
                wrapMode: Text.Wrap
                color: Theme.secondaryText
                text: window.shell.globalShortcuts
                      ? qsTr("Answer, hang up and mute work from anywhere with the keys chosen in the desktop's shortcut settings.")
                      : qsTr("This desktop offers no global shortcuts: answer, hang up and mute work while a velnor RZ window is in front.")
            }
            // --- end of this computer ---

            Button {
                Accessible.onPressAction: clicked()
                objectName: "signOutButton"
                Layout.topMargin: 16
                visible: window.session.stateName === "signedIn"
                text: qsTr("Sign out")
                palette.buttonText: Theme.danger
                Accessible.name: text
                onClicked: signOutDialog.open()
            }
            Item { Layout.preferredHeight: 24 }
        }
    }

    component SectionTitle: Label {
        Layout.fillWidth: true
        Layout.topMargin: 12
        color: Theme.secondaryText
        font.weight: Font.DemiBold
        font.pixelSize: 12
        font.capitalization: Font.AllUppercase
    }

    component DeviceRow: RowLayout {
        id: deviceRow
        property string label
        property var rows: []
        property string chosen
        signal picked(string name)
        function indexOfChosen() {
            for (let i = 0; i < rows.length; ++i) {
                if (rows[i].name === chosen) {
                    return i
                }
            }
            return 0
        }
        Layout.fillWidth: true
        spacing: 10
        Label {
            Layout.preferredWidth: 130
            text: deviceRow.label
            color: Theme.primaryText
        }
        ComboBox {
            objectName: deviceRow.objectName + "Box"
            Layout.fillWidth: true
            model: deviceRow.rows
            textRole: "label"
            valueRole: "name"
            currentIndex: deviceRow.indexOfChosen()
            Accessible.name: deviceRow.label
            // The box itself tells its value; its inner text is not a
            // control of its own.
            Component.onCompleted: contentItem.Accessible.ignored = true
            onActivated: (index) => {
                deviceRow.picked(deviceRow.rows[index].name)
                // The choice is the settings'; the box follows it again.
                currentIndex = Qt.binding(() => deviceRow.indexOfChosen())
            }
        }
    }

    component StatusLine: RowLayout {
        property string label
        property string value
        Layout.fillWidth: true
        Accessible.role: Accessible.StaticText
        Accessible.name: label + ", " + value
        Label {
            Layout.fillWidth: true
            text: parent.label
            color: Theme.primaryText
        }
        Label {
            text: parent.value
            elide: Text.ElideMiddle
            Layout.maximumWidth: 260
            color: Theme.secondaryText
        }
    }

    // --- sign out ---
    Dialog {
        id: signOutDialog
        objectName: "signOutDialog"
        title: qsTr("Sign out")
        modal: true
        anchors.centerIn: parent
        width: Math.min(window.width - 48, 420)
        background: Rectangle {
            color: Theme.windowBackground
            radius: 10
            border.color: Theme.separator
        }
        contentItem: ColumnLayout {
            spacing: 10
            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                color: Theme.primaryText
                text: qsTr("Removing the computer deletes it from your devices; it stops ringing. Keeping it lets you sign in again with the same device.")
            }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "signOutRemoveButton"
                Layout.fillWidth: true
                text: qsTr("Sign out and remove this computer")
                palette.buttonText: Theme.danger
                Accessible.name: text
                onClicked: {
                    signOutDialog.close()
                    window.settings.signOut(true)
                }
            }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "signOutKeepButton"
                Layout.fillWidth: true
                text: qsTr("Sign out, keep the device")
                Accessible.name: text
                onClicked: {
                    signOutDialog.close()
                    window.settings.signOut(false)
                }
            }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "signOutCancelButton"
                Layout.fillWidth: true
                text: qsTr("Cancel")
                Accessible.name: text
                onClicked: signOutDialog.close()
            }
        }
    }
    // --- end of sign out ---

    // --- picture crop ---
    Popup {
        id: cropSheet
        objectName: "cropSheet"
        modal: true
        closePolicy: Popup.CloseOnEscape
        anchors.centerIn: parent
        width: Math.min(window.width - 32, 460)
        height: Math.min(window.height - 32, 520)
        padding: 0
        background: Rectangle {
            color: Theme.windowBackground
            radius: 10
            border.color: Theme.separator
        }
        onClosed: window.settings.cancelCrop()
        // The sheet shows while there is a picture to frame.
        Connections {
            target: window.settings
            function onCropChanged() {
                if (window.settings.crop !== null) {
                    cropSheet.open()
                } else {
                    cropSheet.close()
                }
            }
        }
        Loader {
            anchors.fill: parent
            active: window.settings.crop !== null
            sourceComponent: AvatarCropView {
                objectName: "avatarCropView"
                crop: window.settings.crop
                onUse: window.settings.useCrop()
                onCancel: window.settings.cancelCrop()
            }
        }
    }
    // --- end of picture crop ---

    // --- forwarding editor ---
    Popup {
        id: forwarding
        objectName: "forwardingEditor"
        property QtObject draft: null
        function openEditor() {
            draft = window.shell.newForwardingDraft()
            open()
        }
        modal: true
        focus: true
        anchors.centerIn: parent
        width: Math.min(window.width - 32, 460)
        height: Math.min(window.height - 32, 440)
        padding: 0
        background: Rectangle {
            color: Theme.windowBackground
            radius: 10
            border.color: Theme.separator
        }
        onClosed: draft = null
        Loader {
            anchors.fill: parent
            active: forwarding.draft !== null
            sourceComponent: ForwardingView {
                objectName: "forwardingView"
                draft: forwarding.draft
                shell: window.shell
                onDone: forwarding.close()
            }
        }
    }
    // --- end of forwarding editor ---
}
