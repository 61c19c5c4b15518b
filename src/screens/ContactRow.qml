import QtQuick
import QtQuick.Layouts

// One person of the address book under the company's people: picture, name
// over their number, on the row background. One number is called at once;
// with several the screen asks which.
CallableRow {
    id: line

    required property string name
    required property string subtitle
    required property var numbers
    required property string directNumber
    required property string thumbnail
    property QtObject phone
    property QtObject shell

    // Several numbers to choose from.
    signal choose(string name, var numbers)

    objectName: "contactRow"
    callEnabled: phone !== null
    Accessible.name: name + ", " + subtitle
    Accessible.description: qsTr("Calls %1").arg(name)
    onCall: {
        if (line.directNumber.length > 0)
            line.phone.dialOrQueue(line.directNumber)
        else
            line.choose(line.name, line.numbers)
    }

    // Held by a property of its own: a plain child would become the row's content.
    property Item background: Rectangle {
        parent: line
        anchors.fill: parent
        z: -1
        color: Theme.rowBackground
    }

    ListRow {
        title: line.name
        subtitle: line.subtitle
        leading: Component {
            Avatar {
                size: 40
                name: line.name
                image: line.thumbnail
                shell: line.shell
            }
        }
    }
}
