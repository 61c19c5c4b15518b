import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The section "Keypad": a number, twelve keys, call and delete. The
// computer's keyboard and the clipboard work as well as the mouse.
FocusScope {
    id: view

    required property QtObject phone
    required property QtObject shell
    property string number: ""
    readonly property bool canCall: view.phone.registered && view.shell.canDial(view.number)

    function append(text) {
        number = number + text
    }
    function removeLast() {
        if (number.length > 0)
            number = number.slice(0, -1)
    }
    function paste() {
        append(shell.cleanPasted(shell.clipboardText()))
    }
    function call() {
        if (canCall)
            phone.dial(number)
    }

    focus: true
    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Keypad")

    Keys.onPressed: event => {
        if (event.matches(StandardKey.Paste)) {
            paste()
            event.accepted = true
        } else if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter) {
            call()
            event.accepted = true
        } else if (event.key === Qt.Key_Backspace || event.key === Qt.Key_Delete) {
            removeLast()
            event.accepted = true
        } else if (shell.isKey(event.text)) {
            // Held keys repeat, as they do in any text field.
            append(event.text)
            event.accepted = true
        }
    }

    ColumnLayout {
        id: content
        anchors.centerIn: parent
        spacing: 28
        scale: Math.min(1, view.height / (implicitHeight + 24))

        Text {
            objectName: "keypadNumber"
            Layout.alignment: Qt.AlignHCenter
            Layout.preferredWidth: 3 * 78 + 2 * 18
            Layout.preferredHeight: 44
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
            text: view.number
            elide: Text.ElideLeft
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.weight: Font.Medium
            font.pixelSize: 31
            Accessible.role: Accessible.StaticText
            Accessible.name: view.number.length === 0 ? qsTr("No number entered") : view.number
        }

        Grid {
            Layout.alignment: Qt.AlignHCenter
            columns: 3
            rowSpacing: 22
            columnSpacing: 18

            Repeater {
                model: [
                    { digit: "1", letters: "" }, { digit: "2", letters: "ABC" },
                    { digit: "3", letters: "DEF" }, { digit: "4", letters: "GHI" },
                    { digit: "5", letters: "JKL" }, { digit: "6", letters: "MNO" },
                    { digit: "7", letters: "PQRS" }, { digit: "8", letters: "TUV" },
                    { digit: "9", letters: "WXYZ" }, { digit: "*", letters: "" },
                    { digit: "0", letters: "+" }, { digit: "#", letters: "" }
                ]

                KeyButton {
                    required property var modelData
                    objectName: "key" + modelData.digit
                    digit: modelData.digit
                    letters: modelData.letters
                    symbol: digit === "*" ? "asterisk" : digit === "#" ? "number" : ""
                    symbolSize: digit === "#" ? 26 : 24
                    spokenName: digit === "*" ? qsTr("Star") : digit === "#" ? qsTr("Hash") : digit
                    hasLongPress: digit === "0"
                    onTyped: d => view.append(d)
                    onLongPressed: view.append("+")
                }
            }
        }

        RowLayout {
            Layout.alignment: Qt.AlignHCenter
            spacing: 18

            Item {
                Layout.preferredWidth: 78
                Layout.preferredHeight: 78
            }
            AbstractButton {
                id: callButton
                Accessible.onPressAction: clicked()
                objectName: "keypadCall"
                Layout.preferredWidth: 78
                Layout.preferredHeight: 78
                enabled: view.canCall
                focusPolicy: Qt.StrongFocus
                Accessible.role: Accessible.Button
                Accessible.name: qsTr("Call")
                onClicked: view.call()

                background: Rectangle {
                    radius: width / 2
                    color: Theme.positive
                    opacity: callButton.enabled ? (callButton.down ? 0.8 : 1) : 0.4
                    border.width: callButton.visualFocus ? 3 : 0
                    border.color: Theme.accent
                }
                contentItem: Item {
                    TintedIcon {
                        anchors.centerIn: parent
                        name: "phone.fill"
                        size: 30
                        color: "white"
                    }
                }
            }
            AbstractButton {
                id: deleteButton
                Accessible.onPressAction: clicked()
                objectName: "keypadDelete"
                Layout.preferredWidth: 78
                Layout.preferredHeight: 78
                // Keeps its place in the row while hidden.
                opacity: view.number.length > 0 ? 1 : 0
                enabled: view.number.length > 0
                focusPolicy: Qt.StrongFocus
                Accessible.role: Accessible.Button
                Accessible.name: qsTr("Delete")
                onClicked: view.removeLast()
                property point pressedAt
                // Held for half a second without moving more than 10 points: all goes.
                onPressed: {
                    pressedAt = Qt.point(pressX, pressY)
                    clearTimer.restart()
                }
                onReleased: clearTimer.stop()
                onCanceled: clearTimer.stop()
                onPressXChanged: moved()
                onPressYChanged: moved()
                function moved() {
                    if (Math.hypot(pressX - pressedAt.x, pressY - pressedAt.y) > 10)
                        clearTimer.stop()
                }

                Timer {
                    id: clearTimer
                    interval: 500
                    onTriggered: view.number = ""
                }
                background: Rectangle {
                    radius: width / 2
                    color: "transparent"
                    border.width: deleteButton.visualFocus ? 2 : 0
                    border.color: Theme.accent
                }
                contentItem: Item {
                    TintedIcon {
                        anchors.centerIn: parent
                        name: "delete.left"
                        size: 22
                        color: Theme.secondaryText
                    }
                }
            }
        }
    }
}
