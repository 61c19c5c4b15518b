#include "history/SearchText.h"

namespace SearchText {

namespace {

// Letters whose mark is part of the letter, so decomposition leaves them be.
// Folded already: only lower-case forms reach this.
bool appendPlain(QString& out, QChar c) {
    switch (c.unicode()) {
    case 0x0131: // ı dotless i: Turkish "I" folds to it on a Turkish keyboard
        out.append(u'i');
        return true;
    case 0x0142: // ł
        out.append(u'l');
        return true;
    case 0x00F8: // ø
        out.append(u'o');
        return true;
    case 0x0111: // đ
        out.append(u'd');
        return true;
    case 0x00DF: // ß
        out.append(QStringLiteral("ss"));
        return true;
    default:
        return false;
    }
}

bool isDroppedMark(QChar c) {
    // The kana voicing marks turn か into が: a different sound, kept.
    if (c.unicode() == 0x3099 || c.unicode() == 0x309A) {
        return false;
    }
    const auto category = c.category();
    return category == QChar::Mark_NonSpacing || category == QChar::Mark_SpacingCombining ||
           category == QChar::Mark_Enclosing;
}

} // namespace

QString fold(const QString& text) {
    // Plain ASCII is the common case and needs no decomposition.
    bool ascii = true;
    for (const QChar c : text) {
        if (c.unicode() >= 0x80) {
            ascii = false;
            break;
        }
    }
    if (ascii) {
        return text.toLower();
    }
    const QString decomposed = text.normalized(QString::NormalizationForm_KD).toCaseFolded();
    QString out;
    out.reserve(decomposed.size());
    for (const QChar c : decomposed) {
        if (isDroppedMark(c)) {
            continue;
        }
        if (!appendPlain(out, c)) {
            out.append(c);
        }
    }
    return out;
}

bool containsFolded(const QString& foldedText, const QString& foldedQuery) {
    return foldedQuery.isEmpty() || foldedText.contains(foldedQuery);
}

bool contains(const QString& text, const QString& query) {
    return containsFolded(fold(text), fold(query));
}

} // namespace SearchText
