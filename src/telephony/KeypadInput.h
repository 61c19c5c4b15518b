#pragma once

#include <QString>

// What the keypad takes from the keyboard and the clipboard.
struct KeypadInput {
    // The characters a key press may add to the number.
    static bool isKey(QChar character);
    // Of pasted text, the digits and "+", "*" and "#", in order; the rest
    // (spaces, brackets, dashes, letters) is what people write around numbers.
    static QString cleanPasted(const QString& text);
    // A number can be dialled when there is one and the phone is registered.
    static bool canDial(const QString& number, bool registered);
};
