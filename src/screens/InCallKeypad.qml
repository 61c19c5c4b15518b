import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The keypad during a call: each key, clicked or typed, goes to the far end
// as a tone at once and is added to the row of what was sent.
FocusScope {
    id: keypad

    // What was sent so far; kept by the call screen across a change of call.
    property string dialed: ""
    // Sends one key; the call screen hands it to the phone.
    signal send(string digit)

    implicitWidth: column.implicitWidth + 16
    implicitHeight: column.implicitHeight + 16
    activeFocusOnTab: true

    function press(digit) {
        dialed += digit
        send(digit)
    }

    Keys.onPressed: event => {
        if (event.text.length === 1 && "0123456789*#".indexOf(event.text) >= 0) {
            keypad.press(event.text)
            event.accepted = true
        }
    }

    ColumnLayout {
        id: column
        anchors.centerIn: parent
        spacing: 10

        Label {
            objectName: "dialedDigits"
            Layout.alignment: Qt.AlignHCenter
            Layout.preferredHeight: 24
            text: keypad.dialed
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.pixelSize: 17
            Accessible.role: Accessible.StaticText
            Accessible.name: keypad.dialed === "" ? qsTr("No digits sent") : keypad.dialed
        }

        GridLayout {
            Layout.alignment: Qt.AlignHCenter
            columns: 3
            rowSpacing: 10
            columnSpacing: 10

            Repeater {
                model: ["1", "2", "3", "4", "5", "6", "7", "8", "9", "*", "0", "#"]

                RoundButton {
                    Accessible.onPressAction: clicked()
                    required property string modelData
                    objectName: "inCallKey" + modelData
                    Layout.preferredWidth: 52
                    Layout.preferredHeight: 52
                    text: modelData
                    font.family: Theme.fontFamily
                    font.weight: Font.Medium
                    font.pixelSize: 18
                    focusPolicy: Qt.StrongFocus
                    Accessible.role: Accessible.Button
                    Accessible.name: modelData === "*" ? qsTr("Star")
                                   : modelData === "#" ? qsTr("Pound") : modelData
                    palette.buttonText: Theme.primaryText
                    background: Rectangle {
                        radius: width / 2
                        color: parent.down ? Theme.separator : Theme.fieldBackground
                        border.width: parent.visualFocus ? 2 : 0
                        border.color: Theme.accent
                    }
                    onClicked: keypad.press(modelData)
                }
            }
        }
    }
}
