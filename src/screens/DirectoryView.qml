import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The company directory: everyone and everything that can be called, in one
// searchable list with live presence. The list and its search are the
// session's models; this file only lays them out.
Item {
    id: view

    required property QtObject session
    required property QtObject phone
    required property QtObject shell
    readonly property QtObject list: session ? session.directoryList : null
    readonly property bool hasDirectory: session ? session.hasDirectory : false
    readonly property bool hasError: session ? session.hasDirectoryError : false
    // The address book's people beneath the company, searched alike.
    readonly property QtObject contacts: shell ? shell.directoryContacts : null
    readonly property bool contactsShown: contacts !== null && contacts.sectionShown
    readonly property bool noResults: list !== null && list.noResults
    property alias query: search.text
    // The contact whose numbers are offered: {name, numbers}, or null.
    property var choosing: null
    onChoosingChanged: if (choosing !== null) chooser.open()

    Accessible.role: Accessible.Pane
    Accessible.name: qsTr("Directory")

    Component.onCompleted: if (session) session.reloadDirectory()
    onActiveFocusChanged: if (activeFocus) search.forceActiveFocus()

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        RowLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 20
            Layout.rightMargin: 16
            Layout.topMargin: 14
            Layout.bottomMargin: 10
            spacing: 12

            Text {
                text: qsTr("Directory")
                color: Theme.primaryText
                font.family: Theme.fontFamily
                font.weight: Font.DemiBold
                font.pixelSize: 20
                Accessible.role: Accessible.Heading
                Accessible.name: text
            }
            Item { Layout.fillWidth: true }
            TextField {
                id: search
                objectName: "directorySearch"
                Layout.preferredWidth: 240
                placeholderText: qsTr("Name or number")
                font.family: Theme.fontFamily
                font.pixelSize: 13
                color: Theme.primaryText
                placeholderTextColor: Theme.secondaryText
                leftPadding: 30
                Accessible.name: qsTr("Search")
                background: Rectangle {
                    radius: 8
                    color: Theme.fieldBackground
                    border.width: search.activeFocus ? 2 : 0
                    border.color: Theme.accent
                }
                TintedIcon {
                    anchors.left: parent.left
                    anchors.leftMargin: 9
                    anchors.verticalCenter: parent.verticalCenter
                    name: "magnifyingglass"
                    size: 14
                    color: Theme.secondaryText
                    Accessible.ignored: true
                }
                onTextChanged: {
                    if (view.list)
                        view.list.query = text
                    if (view.contacts)
                        view.contacts.query = text
                    // Each search shows what it finds from the top.
                    rows.positionViewAtBeginning()
                }
                Keys.onEscapePressed: text = ""
            }
        }

        StaleBanner {
            objectName: "directoryStale"
            Layout.fillWidth: true
            visible: view.hasDirectory && view.hasError
            onRetry: view.session.reloadDirectory()
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            SkeletonList {
                objectName: "directorySkeleton"
                width: parent.width
                rows: 8
                visible: !view.hasDirectory && !view.hasError
            }

            LoadErrorView {
                objectName: "directoryLoadError"
                anchors.fill: parent
                visible: !view.hasDirectory && view.hasError
                message: view.session ? view.session.directoryError : ""
                onRetry: view.session.reloadDirectory()
            }

            ListView {
                id: rows
                objectName: "directoryList"
                anchors.fill: parent
                visible: view.hasDirectory
                clip: true
                model: view.hasDirectory ? view.list : null
                reuseItems: true
                boundsBehavior: Flickable.StopAtBounds
                ScrollBar.vertical: ScrollBar { Accessible.name: qsTr("Directory") }
                Accessible.role: Accessible.List
                Accessible.name: qsTr("Directory")

                section.property: "section"
                section.delegate: Item {
                    required property string section
                    width: ListView.view.width
                    height: 30
                    RowSectionHeader {
                        x: 16
                        anchors.bottom: parent.bottom
                        anchors.bottomMargin: 6
                        title: parent.section
                    }
                }

                delegate: DirectoryRow {
                    width: ListView.view.width
                    phone: view.phone
                    shell: view.shell
                }

                // A search that finds no one of the company says so; the
                // people of the address book who match follow right below.
                // (With no rows, the view would put its footer at its far
                // end, so there they stand in the header.)
                header: Column {
                    width: ListView.view.width
                    Item {
                        width: parent.width
                        height: view.noResults ? (view.contactsShown ? 180 : rows.height) : 0
                        SectionEmptyState {
                            objectName: "directoryNoResults"
                            anchors.fill: parent
                            visible: view.noResults
                            title: qsTr("No Results")
                            systemImage: "magnifyingglass"
                            description: qsTr("No results for “%1”").arg(search.text.trim())
                        }
                    }
                    Loader {
                        width: parent.width
                        active: view.noResults && view.contactsShown
                        sourceComponent: contactsSection
                    }
                }

                footer: Loader {
                    width: ListView.view.width
                    active: !view.noResults && view.contactsShown
                    sourceComponent: contactsSection
                }
            }
        }
    }

    // The address book's people who match, under the company's.
    Component {
        id: contactsSection
        Column {
            id: contactsColumn
            objectName: "contactsSection"
            width: parent ? parent.width : 0

            Item {
                width: parent.width
                height: 30
                RowSectionHeader {
                    x: 16
                    anchors.bottom: parent.bottom
                    anchors.bottomMargin: 6
                    title: qsTr("Contacts")
                }
            }
            ContactsPromptRow {
                width: parent.width
                visible: view.contacts !== null && view.contacts.promptShown
                height: visible ? implicitHeight : 0
                onActivated: view.contacts.requestAccess()
            }
            Repeater {
                model: view.contacts !== null && view.contacts.authorized
                       ? view.contacts : null
                delegate: ContactRow {
                    width: contactsColumn.width
                    phone: view.phone
                    shell: view.shell
                    onChoose: (name, numbers) => view.choosing = { name: name, numbers: numbers }
                }
            }
        }
    }

    // Which of a contact's numbers to call.
    Dialog {
        id: chooser
        objectName: "contactNumbers"
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(340, view.width - 48)
        modal: true
        title: view.choosing ? view.choosing.name : ""
        // In the app's light or dark colours, whatever the desktop's palette.
        palette.window: Theme.windowBackground
        palette.button: Theme.fieldBackground
        palette.windowText: Theme.primaryText
        palette.buttonText: Theme.primaryText
        standardButtons: Dialog.Cancel
        onClosed: view.choosing = null

        ColumnLayout {
            width: parent.width
            spacing: 6
            Repeater {
                model: view.choosing ? view.choosing.numbers : []
                delegate: Button {
                    required property string modelData
                    Accessible.onPressAction: clicked()
                    objectName: "contactNumber"
                    Layout.fillWidth: true
                    text: modelData
                    onClicked: {
                        view.phone.dialOrQueue(modelData)
                        chooser.close()
                    }
                }
            }
        }
    }
}
