#include "telephony/KeypadInput.h"

bool KeypadInput::isKey(QChar character) {
    return QStringLiteral("0123456789*#+").contains(character);
}

QString KeypadInput::cleanPasted(const QString& text) {
    QString kept;
    for (const QChar character : text) {
        if (character.isDigit()) {
            // Digits of other scripts dial as the ones the phone system knows.
            kept += QChar(u'0' + character.digitValue());
        } else if (character == u'+' || character == u'*' || character == u'#') {
            kept += character;
        }
    }
    return kept;
}

bool KeypadInput::canDial(const QString& number, bool registered) {
    return !number.isEmpty() && registered;
}
