import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Chooses a colleague, a group or a number for a call in progress: to hand
// the call to ("transfer"), to call beside it ("addCall"), or to bring into
// the conference ("addParticipant"). Names are searched as typed; a typed
// number, on the keyboard or the keypad, is its own first row.
FocusScope {
    id: sheet

    property QtObject session: null
    property string purpose: "transfer"
    property string query: ""
    property bool showKeypad: false
    // The chosen number; the sheet is closed by whoever opened it.
    signal chosen(string number)
    signal cancelled()

    readonly property var rows: session ? session.transferMatches(query) : []
    readonly property string title: purpose === "addCall" ? qsTr("Add call")
                                  : purpose === "addParticipant" ? qsTr("Add to conference")
                                  : qsTr("Transfer to")
    readonly property string rowIcon: purpose === "addCall" ? "phone.fill"
                                    : purpose === "addParticipant" ? "person.badge.plus"
                                    : "arrow.turn.up.right"

    function rowWord(name) {
        return purpose === "addCall" ? qsTr("Call %1").arg(name)
             : purpose === "addParticipant" ? qsTr("Add %1").arg(name)
             : qsTr("Transfer to %1").arg(name)
    }

    implicitWidth: 320
    implicitHeight: column.implicitHeight + 24
    Component.onCompleted: field.forceActiveFocus()
    Keys.onEscapePressed: cancelled()

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 12
        spacing: 8

        Label {
            objectName: "sheetTitle"
            text: sheet.title
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 15
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: 6
            TextField {
                id: field
                objectName: "sheetSearch"
                Layout.fillWidth: true
                placeholderText: qsTr("Name or number")
                text: sheet.query
                onTextEdited: sheet.query = text
                font.family: Theme.fontFamily
                color: Theme.primaryText
                placeholderTextColor: Theme.secondaryText
                background: Rectangle {
                    implicitHeight: 32
                    radius: 6
                    color: Theme.fieldBackground
                    border.width: field.activeFocus ? 2 : 1
                    border.color: field.activeFocus ? Theme.accent : Theme.separator
                }
                Accessible.name: qsTr("Name or number")
                Keys.onReturnPressed: if (list.count > 0) sheet.chosen(sheet.rows[0].number)
                Keys.onDownPressed: { list.forceActiveFocus(); list.currentIndex = 0 }
            }
            CallButton {
                objectName: "sheetKeypadButton"
                size: 28
                systemImage: "circle.grid.3x3.fill"
                active: sheet.showKeypad
                toolTip: qsTr("Keypad")
                accessibleName: sheet.showKeypad ? qsTr("Hide keypad") : qsTr("Keypad")
                onClicked: sheet.showKeypad = !sheet.showKeypad
            }
        }
        // Made only while open, so that the call screen's own keypad is the
        // only one there otherwise.
        Loader {
            active: sheet.showKeypad
            visible: active
            Layout.alignment: Qt.AlignHCenter
            sourceComponent: InCallKeypad {
                objectName: "sheetKeypad"
                // The keys write into the search; nothing is sent to the call.
                onSend: digit => sheet.query = sheet.query + digit
            }
        }
        ListView {
            id: list
            objectName: "sheetList"
            Layout.fillWidth: true
            Layout.preferredHeight: Math.min(contentHeight, sheet.showKeypad ? 120 : 240)
            clip: true
            model: sheet.rows
            keyNavigationEnabled: true
            Accessible.role: Accessible.List
            delegate: ItemDelegate {
                id: rowItem
                required property var modelData
                required property int index
                width: ListView.view.width
                height: 40
                highlighted: ListView.isCurrentItem && list.activeFocus
                background: Rectangle {
                    color: rowItem.down || rowItem.highlighted ? Theme.selection
                         : rowItem.hovered ? Theme.fieldBackground : "transparent"
                    radius: 6
                }
                Accessible.role: Accessible.Button
                Accessible.name: sheet.rowWord(modelData.name)
                contentItem: RowLayout {
                    spacing: 10
                    TintedIcon {
                        name: sheet.rowIcon
                        color: Theme.accent
                    }
                    Label {
                        Layout.fillWidth: true
                        elide: Text.ElideRight
                        text: rowItem.modelData.name
                        color: Theme.primaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 13
                    }
                    Label {
                        visible: !rowItem.modelData.typed
                        text: rowItem.modelData.number
                        color: Theme.secondaryText
                        font.family: Theme.fontFamily
                        font.pixelSize: 12
                    }
                }
                onClicked: sheet.chosen(modelData.number)
                Keys.onReturnPressed: sheet.chosen(modelData.number)
            }
        }
        Button {
            Accessible.onPressAction: clicked()
            objectName: "sheetCancel"
            Layout.alignment: Qt.AlignRight
            text: qsTr("Cancel")
            icon.source: Icons.of("xmark")
            icon.width: 14
            icon.height: 14
            icon.color: Theme.primaryText
            palette.buttonText: Theme.primaryText
            flat: true
            font.family: Theme.fontFamily
            onClicked: sheet.cancelled()
        }
    }
}
