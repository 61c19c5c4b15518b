import QtQuick
import QtQuick.Controls

// A list that could not be loaded and has nothing saved: why, and "Try again".
SectionEmptyState {
    id: view

    property string message
    signal retry()

    title: qsTr("Could not load")
    systemImage: "wifi.exclamationmark"
    description: message

    Button {
        Accessible.onPressAction: clicked()
        objectName: "tryAgainButton"
        text: qsTr("Try again")
        highlighted: true
        palette.button: Theme.accent
        palette.highlight: Theme.accent
        palette.buttonText: "white"
        palette.highlightedText: "white"
        Accessible.name: text
        onClicked: view.retry()
    }
}
