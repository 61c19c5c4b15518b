import QtQuick
import QtQuick.Layouts

// The centred picture, title and sentence of a screen with nothing to show.
Item {
    id: state

    property string title
    property string systemImage
    property string description
    // Optional controls under the sentence (a retry button).
    default property alias extra: more.data

    Accessible.role: Accessible.StaticText
    Accessible.name: title + ". " + description

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 360)
        spacing: 8

        TintedIcon {
            Layout.alignment: Qt.AlignHCenter
            name: state.systemImage
            size: 40
            color: Theme.secondaryText
        }
        Text {
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 4
            text: state.title
            color: Theme.primaryText
            font.family: Theme.fontFamily
            font.weight: Font.DemiBold
            font.pixelSize: 18
        }
        Text {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            text: state.description
            color: Theme.secondaryText
            wrapMode: Text.Wrap
            font.family: Theme.fontFamily
            font.pixelSize: 13
        }
        Item {
            id: more
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 8
            implicitWidth: childrenRect.width
            implicitHeight: childrenRect.height
        }
    }
}
