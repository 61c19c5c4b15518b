import QtQuick
import QtQuick.Controls

// Opens and closes the statistics panel; shows the call's signal bars, or a
// chart while there is no level yet.
ToolButton {
    id: toggle
    Accessible.onPressAction: clicked()

    property bool shown: false
    property string level: ""
    signal toggled()

    implicitWidth: 28
    implicitHeight: 28
    padding: 4
    focusPolicy: Qt.StrongFocus
    contentItem: Item {
        QualityBars {
            anchors.centerIn: parent
            level: toggle.level
        }
        TintedIcon {
            anchors.centerIn: parent
            visible: toggle.level === ""
            name: "chart.bar.xaxis"
            color: Theme.secondaryText
        }
    }
    ToolTip.visible: hovered
    ToolTip.text: Accessible.name
    Accessible.role: Accessible.Button
    Accessible.name: shown ? qsTr("Hide call statistics") : qsTr("Show call statistics")
    onClicked: toggled()
}
