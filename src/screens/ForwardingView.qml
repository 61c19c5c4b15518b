import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The four forwarding rules as one draft, saved in one step. The draft
// decides what each rule reads as; a failed save leaves it open and intact.
Item {
    id: view

    required property QtObject draft
    property QtObject shell: null
    // Closes the editor: after a good save, or on "Cancel".
    signal done()

    implicitWidth: 440
    implicitHeight: form.implicitHeight + 32
    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Forwarding")

    Connections {
        target: view.draft
        function onSaved(ok) { if (ok) view.done() }
    }

    ColumnLayout {
        id: form
        anchors.fill: parent
        anchors.margins: 16
        spacing: 4

        RowLayout {
            Layout.fillWidth: true
            Button {
                Accessible.onPressAction: clicked()
                objectName: "forwardingCancel"
                flat: true
                palette.buttonText: Theme.accent
                text: qsTr("Cancel")
                onClicked: view.done()
            }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                text: qsTr("Forwarding")
                color: Theme.primaryText
                font.family: Theme.fontFamily
                font.pixelSize: 16
                font.weight: Font.DemiBold
                Accessible.role: Accessible.Heading
            }
            Button {
                Accessible.onPressAction: clicked()
                objectName: "forwardingSave"
                text: view.draft.saving ? "" : qsTr("Save")
                enabled: view.draft.canSave
                highlighted: true
                palette.button: Theme.accent
                palette.highlight: Theme.accent
                Accessible.name: qsTr("Save")
                BusyIndicator {
                    anchors.centerIn: parent
                    width: 20
                    height: 20
                    running: view.draft.saving
                    visible: running
                }
                onClicked: view.draft.save()
            }
        }

        TargetField {
            Layout.fillWidth: true
            title: qsTr("Forward all calls")
            rule: "always"
            draft: view.draft
            onPickColleague: (rule) => picker.openFor(rule)
            onEnterNumber: (rule) => numberDialog.openFor(rule)
        }
        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }
        TargetField {
            Layout.fillWidth: true
            title: qsTr("When busy")
            rule: "busy"
            draft: view.draft
            onPickColleague: (rule) => picker.openFor(rule)
            onEnterNumber: (rule) => numberDialog.openFor(rule)
        }
        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }
        TargetField {
            Layout.fillWidth: true
            title: qsTr("When not answered")
            rule: "noAnswer"
            draft: view.draft
            onPickColleague: (rule) => picker.openFor(rule)
            onEnterNumber: (rule) => numberDialog.openFor(rule)
        }
        RowLayout {
            Layout.fillWidth: true
            visible: view.draft.hasNoAnswer
            Label {
                Layout.fillWidth: true
                text: qsTr("Ring for")
                color: Theme.primaryText
                font.family: Theme.fontFamily
                font.pixelSize: 14
            }
            SpinBox {
                objectName: "ringFor"
                from: 5
                to: 300
                stepSize: 5
                value: view.draft.afterS
                editable: false
                textFromValue: (value) => qsTr("%1 s").arg(value)
                onValueModified: view.draft.afterS = value
                Accessible.name: qsTr("Ring for")
            }
        }
        Rectangle { Layout.fillWidth: true; height: 1; color: Theme.separator }
        TargetField {
            Layout.fillWidth: true
            title: qsTr("When offline")
            rule: "offline"
            draft: view.draft
            onPickColleague: (rule) => picker.openFor(rule)
            onEnterNumber: (rule) => numberDialog.openFor(rule)
        }
        Item { Layout.fillHeight: true }
    }

    ColleaguePicker {
        id: picker
        objectName: "colleaguePicker"
        parent: Overlay.overlay
        draft: view.draft
        shell: view.shell
        function openFor(rule) { picker.rule = rule; open() }
    }

    Dialog {
        id: numberDialog
        objectName: "numberDialog"
        property string rule: ""
        function openFor(rule) {
            numberDialog.rule = rule
            numberField.text = view.draft.numberOf(rule)
            open()
            numberField.forceActiveFocus()
        }
        parent: Overlay.overlay
        anchors.centerIn: parent
        modal: true
        title: qsTr("Phone number")
        standardButtons: Dialog.Cancel | Dialog.Ok
        ColumnLayout {
            spacing: 8
            TextField {
                id: numberField
                objectName: "numberField"
                Layout.preferredWidth: 260
                placeholderText: qsTr("+49 30 1234567")
                inputMethodHints: Qt.ImhDialableCharactersOnly
                onAccepted: numberDialog.accept()
            }
            Label {
                text: qsTr("International format, e.g. +49 30 1234567.")
                color: Theme.secondaryText
                font.family: Theme.fontFamily
                font.pixelSize: 12
            }
        }
        // Nothing left after the cleaning keeps the rule as it was.
        onAccepted: view.draft.toNumber(rule, numberField.text)
    }
}
