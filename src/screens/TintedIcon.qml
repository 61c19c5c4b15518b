import QtQuick
import QtQuick.Controls.impl

// A system image by its name, drawn in one colour.
Item {
    id: icon

    property string name
    property int size: 16
    property color color: Theme.primaryText

    implicitWidth: size
    implicitHeight: size
    width: size
    height: size
    Accessible.ignored: true

    IconImage {
        anchors.fill: parent
        source: Icons.of(icon.name)
        sourceSize: Qt.size(icon.size, icon.size)
        color: icon.color
    }
}
