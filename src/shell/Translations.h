#pragma once

#include <QLocale>
#include <QString>
#include <QTranslator>

// The app's texts in the person's language: the catalogue compiled into the
// binary for the locale's languages (LANGUAGE, LC_MESSAGES, LANG), and Qt's
// own for the texts its controls draw. English needs neither.
class Translations {
public:
    // Installs both catalogues on the running application; false when the
    // app has none for the locale, which then reads English.
    bool install(const QLocale& locale = QLocale());

    // The language of the app's catalogue in use, as "de"; empty for English.
    QString language() const { return m_language; }

private:
    QTranslator m_app;
    QTranslator m_qt;
    QString m_language;
};
