import QtQuick
import QtQuick.Controls

// One round key of the keypad: the digit, and its letters beneath.
AbstractButton {
    id: key
    Accessible.onPressAction: clicked()

    property string digit
    property string letters
    // The symbol drawn instead of the digit ("*" and "#"), and its size.
    property string symbol: ""
    property int symbolSize: 24
    property string spokenName: digit
    // Set for keys with a second meaning when held (the "+" of "0").
    property bool hasLongPress: false
    signal typed(string digit)
    signal longPressed()

    property bool held: false

    width: 78
    height: 78
    focusPolicy: Qt.StrongFocus
    Accessible.role: Accessible.Button
    Accessible.name: letters.length > 0 ? spokenName + " " + letters : spokenName

    onPressed: held = false
    onPressAndHold: {
        if (hasLongPress) {
            held = true
            longPressed()
        }
    }
    // After a long press the plain click does not also type.
    onClicked: if (!held) typed(digit)

    background: Rectangle {
        radius: width / 2
        color: key.down ? Theme.separator : Theme.fieldBackground
        border.width: key.visualFocus ? 2 : 0
        border.color: Theme.accent
    }
    contentItem: Item {
        Column {
            anchors.centerIn: parent
            spacing: 0

            Item {
                anchors.horizontalCenter: parent.horizontalCenter
                width: 40
                height: 30
                Text {
                    anchors.centerIn: parent
                    visible: key.symbol.length === 0
                    text: key.digit
                    color: Theme.primaryText
                    font.family: Theme.fontFamily
                    font.pixelSize: 24
                    Accessible.ignored: true
                }
                TintedIcon {
                    anchors.centerIn: parent
                    visible: key.symbol.length > 0
                    name: key.symbol
                    size: key.symbolSize
                }
            }
            // The same height for every key, with letters or without.
            Item {
                anchors.horizontalCenter: parent.horizontalCenter
                width: 40
                height: 12
                Text {
                    anchors.centerIn: parent
                    text: key.letters
                    color: Theme.secondaryText
                    font.family: Theme.fontFamily
                    font.weight: Font.DemiBold
                    font.pixelSize: 8
                    font.letterSpacing: 1.5
                    Accessible.ignored: true
                }
            }
        }
    }
}
