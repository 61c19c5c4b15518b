import QtQuick

// The Contacts section while the address book is not open: a row that asks
// for it, saying that nothing of it leaves the computer.
Item {
    id: prompt

    signal activated()

    objectName: "contactsPrompt"
    implicitHeight: row.implicitHeight
    implicitWidth: 320
    Accessible.role: Accessible.Button
    Accessible.name: row.title + ", " + row.subtitle
    Accessible.onPressAction: prompt.activated()

    ListRow {
        id: row
        anchors.fill: parent
        title: qsTr("Show contacts")
        titleColor: Theme.accent
        subtitle: qsTr("Names and photos stay on this computer.")
        leading: Component {
            RowIcon { systemName: "person.crop.circle.badge.plus" }
        }
    }
    TapHandler {
        onTapped: prompt.activated()
    }
}
