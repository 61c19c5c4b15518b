import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The call on hold behind the one in front: its name, Merge when the server
// can join the two, and Swap.
Rectangle {
    id: strip

    // The held call as the phone shows it: name, number.
    required property var call
    property bool canMerge: false
    signal swap()
    signal merge()

    implicitWidth: row.implicitWidth + 24
    implicitHeight: row.implicitHeight + 16
    radius: 10
    color: Theme.fieldBackground
    border.width: 1
    border.color: Theme.separator

    Accessible.role: Accessible.Grouping
    Accessible.name: qsTr("On hold") + " " + (call.name || call.number || "")

    RowLayout {
        id: row
        anchors.fill: parent
        anchors.leftMargin: 12
        anchors.rightMargin: 12
        anchors.topMargin: 8
        anchors.bottomMargin: 8
        spacing: 10

        Label {
            text: qsTr("On hold")
            color: Theme.secondaryText
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 12
        }
        Label {
            objectName: "heldName"
            Layout.fillWidth: true
            elide: Text.ElideRight
            text: strip.call.name || strip.call.number || ""
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.pixelSize: 13
        }
        CallButton {
            objectName: "mergeButton"
            visible: strip.canMerge
            size: 28
            systemImage: "arrow.triangle.merge"
            toolTip: qsTr("Merge")
            accessibleName: qsTr("Merge")
            onClicked: strip.merge()
        }
        CallButton {
            objectName: "swapButton"
            size: 28
            systemImage: "arrow.left.arrow.right"
            toolTip: qsTr("Swap")
            accessibleName: qsTr("Swap")
            onClicked: strip.swap()
        }
    }
}
