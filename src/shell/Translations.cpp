#include "shell/Translations.h"

#include "platform/Log.h"

#include <QCoreApplication>
#include <QLibraryInfo>

bool Translations::install(const QLocale& locale) {
    // The first of the person's languages that has a catalogue wins, so that
    // LANGUAGE=fr:de reads German where there is no French.
    if (!m_app.load(locale, QStringLiteral("velnor-rz"), QStringLiteral("_"),
                    QStringLiteral(":/i18n"))) {
        return false;
    }
    QCoreApplication::installTranslator(&m_app);
    m_language = m_app.language();
    // Qt's own texts (a text field's context menu, the dialogs' buttons) come
    // from the system's Qt catalogues; without them those stay English.
    if (m_qt.load(locale, QStringLiteral("qt"), QStringLiteral("_"),
                  QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        QCoreApplication::installTranslator(&m_qt);
    } else {
        Log::info(Log::app,
                  QStringLiteral("No Qt catalogue for %1 in %2")
                      .arg(m_language, QLibraryInfo::path(QLibraryInfo::TranslationsPath)));
    }
    Log::info(Log::app, QStringLiteral("Texts in %1").arg(m_language));
    return true;
}
