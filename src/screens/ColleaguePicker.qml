import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// "Forward to": a searchable list of people and groups of the directory.
Popup {
    id: picker

    required property QtObject draft
    // For the monograms of the rows.
    property QtObject shell: null
    // The rule being chosen for.
    property string rule: ""
    property string query: ""

    readonly property var rows: draft.colleagues(query)

    modal: true
    focus: true
    padding: 0
    width: Math.min(parent ? parent.width - 40 : 360, 400)
    height: Math.min(parent ? parent.height - 40 : 480, 520)
    anchors.centerIn: parent
    onOpened: { query = ""; search.text = ""; search.forceActiveFocus() }

    background: Rectangle {
        color: Theme.windowBackground
        radius: 10
        border.color: Theme.separator
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        RowLayout {
            Layout.fillWidth: true
            Layout.margins: 12
            Label {
                Layout.fillWidth: true
                text: qsTr("Forward to")
                color: Theme.primaryText
                font.family: Theme.fontFamily
                font.pixelSize: 16
                font.weight: Font.DemiBold
            }
            RoundButton {
                Accessible.onPressAction: clicked()
                objectName: "pickerCancel"
                flat: true
                icon.source: Icons.of("xmark")
                icon.color: Theme.secondaryText
                Accessible.name: qsTr("Cancel")
                onClicked: picker.close()
            }
        }
        TextField {
            id: search
            objectName: "pickerSearch"
            Layout.fillWidth: true
            Layout.leftMargin: 12
            Layout.rightMargin: 12
            placeholderText: qsTr("Search")
            color: Theme.primaryText
            placeholderTextColor: Theme.secondaryText
            background: Rectangle {
                radius: 6
                color: Theme.fieldBackground
                border.width: search.activeFocus ? 2 : 0
                border.color: Theme.accent
            }
            onTextChanged: picker.query = text
        }
        ListView {
            objectName: "pickerList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.topMargin: 8
            clip: true
            model: picker.rows
            section.property: "group"
            section.delegate: RowSectionHeader {
                required property string section
                width: ListView.view.width
                title: section === "true" ? qsTr("Groups") : qsTr("People")
            }
            delegate: ItemDelegate {
                required property var modelData
                width: ListView.view.width
                objectName: "pick_" + modelData.id
                Accessible.name: modelData.name
                background: Rectangle {
                    color: parent.hovered ? Theme.fieldBackground : "transparent"
                }
                contentItem: ListRow {
                    title: modelData.name
                    subtitle: modelData.extension
                    leading: Component {
                        Avatar {
                            name: modelData.name
                            size: 32
                            shell: picker.shell
                        }
                    }
                }
                onClicked: {
                    picker.draft.toColleague(picker.rule, modelData.id, modelData.group)
                    picker.close()
                }
            }
        }
    }
}
