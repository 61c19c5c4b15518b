import QtQuick
import QtQuick.Layouts

// One line of a list: something at the front, a title over a subtitle, and
// something at the end. It takes the list's whole width.
Item {
    id: row

    required property string title
    property color titleColor: Theme.primaryText
    property bool emphasized: false
    property string subtitle: ""
    property string subtitleIcon: ""
    property string subtitleIconLabel: ""
    property Component leading: null
    property Component trailing: null

    implicitHeight: Math.max(56, texts.implicitHeight + 16)
    implicitWidth: 320
    Accessible.role: Accessible.ListItem
    Accessible.name: subtitle.length > 0 ? title + ", " + subtitle : title

    RowLayout {
        anchors.fill: parent
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        spacing: 12

        Loader {
            sourceComponent: row.leading
            visible: row.leading !== null
        }
        ColumnLayout {
            id: texts
            Layout.fillWidth: true
            spacing: 2

            Text {
                Layout.fillWidth: true
                text: row.title
                color: row.titleColor
                elide: Text.ElideRight
                font.family: Theme.fontFamily
                font.pixelSize: 14
                font.weight: row.emphasized ? Font.DemiBold : Font.Medium
            }
            RowLayout {
                visible: row.subtitle.length > 0
                spacing: 4

                TintedIcon {
                    visible: row.subtitleIcon.length > 0
                    name: row.subtitleIcon
                    size: 12
                    color: Theme.secondaryText
                    Accessible.ignored: row.subtitleIconLabel.length === 0
                    Accessible.name: row.subtitleIconLabel
                }
                Text {
                    Layout.fillWidth: true
                    text: row.subtitle
                    color: Theme.secondaryText
                    elide: Text.ElideRight
                    font.family: Theme.fontFamily
                    font.pixelSize: 12
                }
            }
        }
        Loader {
            sourceComponent: row.trailing
            visible: row.trailing !== null
        }
    }
}
